#!/bin/sh
# Opens an address in the user's browser: the one that $BROWSER names, or the desktop's own. Does not wait for it.
if [ -n "$BROWSER" ] && command -v "$BROWSER" >/dev/null 2>&1; then
    "$BROWSER" "$1" >/dev/null 2>&1 &
    exit 0
fi
exec xdg-open "$1" >/dev/null 2>&1
