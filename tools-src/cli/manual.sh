#!/usr/bin/env bash
# Prints the manual page of the command, made from what its --help says. Argument: the command.
set -euo pipefail
command="$1"

# Lines of a help text as roff, without the line that names the usage.
page() {
  awk '
    function plain(text) {
      gsub(/\\/, "\\e", text)
      gsub(/-/, "\\-", text)
      return (text ~ /^[.\047]/ ? "\\&" : "") text
    }
    function isHead(text) {
      return text ~ /^  ((-[a-z],)?--[a-z-]+|[A-Z]+)( [A-Z]+(:[A-Z]+|:INT in \[[0-9]+ - [0-9]+\]|:\{[a-z0-9,]+\})?(=[^ ]+)?)?( REQUIRED| Excludes: [a-z -]+| Needs: [a-z -]+)? *$/
    }
    function head(text) {
      value = text
      sub(/^  [^ ]+ */, "", value)
      sub(/^[A-Z]+:(INT in )?/, "", value)
      sub(/ +$/, "", value)
      sub(/=/, ", by default ", value)
      sub(/ REQUIRED/, ", required", value)
      sub(/ Excludes:/, ", not with", value)
      sub(/ Needs:/, ", needs", value)
      split(text, word, " ")
      sub(/,/, ", ", word[1])
      print ".TP\n\\fB" plain(word[1]) "\\fR" (value == "" ? "" : " " plain(value))
    }
    /^Usage: / {next}
    /^(Positionals|Options):$/ {options = 1; next}
    /^Subcommands:$/ {exit}
    /^$/ {if (blanks++) print ".PP"; options = 0; next}  # the first is before the options
    options && isHead($0) {head($0); next}
    options && /^  [-A-Z]/ && isHead(substr($0, 1, 30)) {head(substr($0, 1, 30)); print plain(substr($0, 31)); next}
    options && /^                              / {print plain(substr($0, 31)); next}
    options {print "manual.sh: cannot read: " $0 >"/dev/stderr"; exit 1}
    {
      if (!literal && /^ /) print ".nf"
      if (literal && !/^ /) print ".fi"
      literal = /^ /
      print plain($0)
    }
    END {if (literal) print ".fi"}'
}

help="$("$command" --help)"
mapfile -t names < <(sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p' <<<"$help")
echo ".TH QUILLMAR 1 \"\" \"$("$command" --version)\" \"User Commands\""
echo ".SH NAME"
echo "quillmar \\- $(head -n 1 <<<"$help")"
echo ".SH SYNOPSIS"
for name in "${names[@]}"; do
  printf '.B quillmar %s\n.RI [ OPTIONS ]\n.br\n' "$name"
done
echo ".SH OPTIONS"
sed 1d <<<"$help" | page
for name in "${names[@]}"; do
  echo ".SH QUILLMAR ${name^^}"
  "$command" "$name" --help | page
done
echo ".SH EXIT STATUS"
sed -n 's/^Exit status: //p' <<<"$help" | sed 's/; /;\n/g'
