# The release's own facts, and the limits that keep hostile or worn-out inputs from doing harm.
section "Each run names the controller's version in the day's log"
log_dir="$localappdata/Orvanta/Brenlowpack/Ravelin/Controller/Logs"
grep -h " started" "$log_dir"/*.log | tail -n 1

section "A schema of the wrong shape, or with an endless chain of references, is refused"
hostile="$root/build/demo-hostile"
mkdir -p "$hostile"
printf '{"type":"object","required":"x"}\n' > "$hostile/shape.schema.json"
python3 - "$hostile/chain.schema.json" <<'PY'
import json, sys
defs = {f"d{i}": {"$ref": f"#/definitions/d{i + 1}"} for i in range(10000)}
defs["d10000"] = {}
json.dump({"$ref": "#/definitions/d0", "definitions": defs}, open(sys.argv[1], "w"))
PY
ctl custom-model validate "Z:$hostile/shape.schema.json" "$baseline"
ctl custom-model validate "Z:$hostile/chain.schema.json" "$baseline"

section "A version readers would not accept is never announced; deleting control.bin restarts at 1"
control="$localappdata/Orvanta/Brenlowpack/Ravelin/published/control.bin"
cp "$control" /tmp/cmr-demo-control.bin
python3 - "$control" <<'PY'
import sys
path = sys.argv[1]
data = bytearray(open(path, "rb").read())
data[8:12] = (0x7FFFFFFF).to_bytes(4, "little")
open(path, "wb").write(bytes(data))
PY
ctl config publish "$menu_win"
mv /tmp/cmr-demo-control.bin "$control"
ctl config status "$menu_win"
