# The front end: usage, argument errors, and the daily log.
section "Usage (no arguments)"
ctl | head -12
echo "... (the full usage text continues)"

section "Argument errors are caught before any handler runs"
ctl Status | head -4; echo "... (followed by the usage text)"
ctl enable --strategy sideways
ctl config validate a.json b.json

section "Every run appends to the day's log"
ls "$localappdata/Orvanta/Brenlowpack/Ravelin/Controller/Logs/"
