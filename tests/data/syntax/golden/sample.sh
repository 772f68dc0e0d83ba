#!/bin/sh
# count args
if [ $# -eq 0 ]; then
  echo "no \"args\"" >&2; exit 1
fi
tag=v1#beta  # the word keeps its '#'
printf '%s\n' "$HOME" $USER
echo done # no newline