# To be sourced. The pages that the command writes, in a real browser without a window.

page_packages=(chromium fonts-dejavu-core)

# browse FOLDER URL OPTION...: opens the page; what the browser prints goes to FOLDER/output. Prints what the page wrote
# on its console.
browse() {
  local folder="$1" url="$2"
  shift 2
  timeout 120 chromium --headless=new --no-sandbox --disable-gpu --disable-dev-shm-usage --no-first-run \
    --disable-background-networking --disable-component-update --user-data-dir="$folder/profile" \
    --hide-scrollbars --virtual-time-budget=3000 --enable-logging=stderr --log-level=0 "$@" "$url" >"$folder/output" 2>"$folder/log" ||
    echo "the browser failed"
  grep CONSOLE "$folder/log" || true
}

# shown FOLDER NAME [SCRIPT]: opens the page at its fifth step, and runs the script at its end. Leaves what it then consists
# of in FOLDER/output, and prints the numbers of the steps that it shows.
shown() {
  local folder="$1" name="$2" page
  page="$(<"$folder/$name.html")"
  echo "${page/%"</script>"*/"${3:-}</script></body></html>"}" >"$folder/opened.html"
  browse "$folder" "file://$PWD/$folder/opened.html#step-5" --dump-dom
  sed -nE 's/.*<li id="step-([0-9]+)" class="shown".*/\1/p' "$folder/output" | xargs
}

# page_faults FOLDER COMMAND: writes pages of two lives and two installs into the folder, with pictures of them at two
# widths, and prints what is wrong with them. The second of each has names that want to be more than names.
page_faults() {
  local folder="$1" quillmar="$2" name width text wanted expected
  local hostile='</script><img src=x onerror=console.log(1)>'
  local life=("What the advertiser receives" "lock at 3d2h" "4d2h and 9d2h" "coarse high" "fine 35" "medium"
    "ignored: the window is locked" "is not complete; purchase: 74.9 seen, 0 to 10 wanted" "library" "platform")
  local install=("An install on day 0" "3 days left, with today" "7 rules, fetched " "2 with revenue from 24.5 to 74.9"
    'rule "session", fine 1, coarse low' "add_to_cart, " "What the next event sends" "range-overlap" "library" "now")
  rm -rf "$folder"
  mkdir -p "$folder"
  cp examples/shop-config.json "$folder/life.json"
  cp examples/shop-events.jsonl "$folder/life.jsonl"
  cp examples/run-events.jsonl "$folder/install.jsonl"
  for name in life install; do
    { cat "$folder/$name.jsonl" && echo "{\"event\":\"$hostile\"}"; } >"$folder/hostile-$name.jsonl"
  done
  sed "s|\"purchase_medium\"|\"$hostile\"|" examples/shop-config.json >"$folder/hostile-life.json"
  for name in {,hostile-}life; do
    "$quillmar" simulate --config "$folder/$name.json" --events "$folder/$name.jsonl" --days 40 \
      --html "$folder/$name.html" >"$folder/$name.txt"
  done
  for name in {,hostile-}install; do
    "$quillmar" run --key key --data "$folder/$name" --events "$folder/$name.jsonl" >"$folder/$name.txt"
    [[ $name == install ]] || cp "$folder/hostile-life.json" "$folder/$name/documents/Quillmar/quill-mar-conv-val.json"
    "$quillmar" inspect --data "$folder/$name" --html "$folder/$name.html" >"$folder/$name.txt"
  done
  for name in {,hostile-}{life,install}; do
    for width in 1280 420; do
      browse "$folder" "file://$PWD/$folder/$name.html" --window-size="$width,1000" \
        --screenshot="$folder/$name-$width.png"
      [[ -s "$folder/$name-$width.png" ]] || echo "$name, $width wide: there is no picture"
    done
    [[ $name == *install ]] && expected="" || expected=5
    [[ "$(shown "$folder" "$name")" == "$expected" ]] || echo "$name: the step of the address should be shown, alone"
    text="$(sed -e '/<style/,/<\/style>/d;s/<[^>]*>//g;s/&lt;/</g;s/&gt;/>/g;s/&quot;/"/g' "$folder/output")"
    local -n needed="${name#hostile-}"
    for wanted in "${needed[@]}"; do
      grep -qF -- "$wanted" <<<"$text" || echo "$name: the page does not say \"$wanted\""
    done
    grep -q '<html[^>]* class="js"' "$folder/output" || echo "$name: the script does not run"
    [[ "$(grep -oE '<(script|img)\b' "$folder/output")" == "<script" ]] || echo "$name: a name became an element"
    [[ $name != hostile-* ]] || grep -qF -- "$hostile" <<<"$text" || echo "$name: the name is not there"
    browse "$folder" "file://$PWD/$folder/$name.html" --no-pdf-header-footer --print-to-pdf="$folder/$name.pdf"
    (($(grep -acE '/Type */Page\b' "$folder/$name.pdf") == 1)) || echo "$name: does not print on one page"
  done
  [[ "$(shown "$folder" life 'marks[0].dispatchEvent(new Event("mouseenter"))')" == "1 2" ]] ||
    echo "life: both steps under the pointer should be shown"
  [[ "$(shown "$folder" life 'marks[5].focus()')" == 6 ]] || echo "life: the step with the focus should be shown"
  # The README's picture is that of the first life, with the style inside.
  {
    sed -n 's/.*<svg/<svg/p' "$folder/life.html" && echo "<style>" && cat tools-src/cli/page/page.css && echo "</style>"
    sed -n '/<svg/,/<\/svg>/p' "$folder/life.html" | sed '1d;s/<\/div>//'
  } >"$folder/life.svg"
  cmp -s "$folder/life.svg" docs/life.svg || echo "docs/life.svg is an old picture; take $folder/life.svg"
}
