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

# page_faults FOLDER COMMAND: writes pages of two lives into the folder, with pictures of them at two widths, and prints
# what is wrong with them. The second life has names that want to be more than names.
page_faults() {
  local folder="$1" quillmar="$2" name width dom text wanted
  local hostile='</script><img src=x onerror=console.log(1)>'
  rm -rf "$folder"
  mkdir -p "$folder"
  sed "s|\"purchase_medium\"|\"$hostile\"|" examples/shop-config.json >"$folder/hostile.json"
  { cat examples/shop-events.jsonl && echo "{\"event\":\"$hostile\"}"; } >"$folder/hostile.jsonl"
  cp examples/shop-config.json "$folder/life.json"
  cp examples/shop-events.jsonl "$folder/life.jsonl"
  for name in life hostile; do
    "$quillmar" simulate --config "$folder/$name.json" --events "$folder/$name.jsonl" --days 40 \
      --html "$folder/$name.html" >"$folder/$name.txt"
    for width in 1280 420; do
      browse "$folder" "file://$PWD/$folder/$name.html" --window-size="$width,1000" \
        --screenshot="$folder/$name-$width.png"
      [[ -s "$folder/$name-$width.png" ]] || echo "$name, $width wide: there is no picture"
    done
    browse "$folder" "file://$PWD/$folder/$name.html#step-5" --dump-dom
    dom="$(<"$folder/output")"
    text="$(sed -e 's/<style.*//;/<style/,/<\/style>/d;s/<[^>]*>//g;s/&lt;/</g;s/&gt;/>/g;s/&quot;/"/g' <<<"$dom")"
    for wanted in "What the advertiser receives" "lock at 2d" "3d and 8d" "coarse high" "fine 35" \
      "ignored: the window is locked" "is not complete; purchase: 74.9 seen, 0 to 10 wanted" "library" "platform"; do
      grep -qF -- "$wanted" <<<"$text" || echo "$name: the page does not say \"$wanted\""
    done
    # The script runs, and shows the step that the address names.
    grep -q '<html[^>]* class="js"' <<<"$dom" || echo "$name: the script does not run"
    grep -q '<li id="step-5" class="shown"' <<<"$dom" || echo "$name: the step of the address is not shown"
    (($(grep -o 'class="shown"' <<<"$dom" | wc -l) == 2)) || echo "$name: one mark and one step should be shown"
    [[ "$(grep -oE '<(script|img)\b' <<<"$dom")" == "<script" ]] || echo "$name: a name became an element"
    browse "$folder" "file://$PWD/$folder/$name.html" --no-pdf-header-footer --print-to-pdf="$folder/$name.pdf"
    (($(grep -acE '/Type */Page\b' "$folder/$name.pdf") == 1)) || echo "$name: does not print on one page"
  done
  grep -qF -- "$hostile" <<<"$text" || echo "hostile: the name is not there"
  # The README's picture is that of the first life, with the style inside.
  {
    sed -n 's/.*<svg/<svg/p' "$folder/life.html" && echo "<style>" && cat tools-src/cli/page/page.css && echo "</style>"
    sed -n '/<svg/,/<\/svg>/p' "$folder/life.html" | sed '1d;s/<\/div>//'
  } >"$folder/life.svg"
  cmp -s "$folder/life.svg" docs/life.svg || echo "docs/life.svg is an old picture; take $folder/life.svg"
}
