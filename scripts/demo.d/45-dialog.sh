# File-dialog enrolment against the rig's stand-in dialog (a "#32770" dialog whose shell view
# appears 300 ms after it) and the stand-in Hook beside a copy of the controller.
section "File-dialog enrolment, against a stand-in dialog"
install="$WINEPREFIX/drive_c/demo-install"
mkdir -p "$install"
cp "$exe" "$root"/build/stage/Brenlow.ContextMenuReplacement.Hook.*.dll "$install/"
export CMR_RIG_JOURNAL='C:\demo-dialog-journal.txt'
journal="$WINEPREFIX/drive_c/demo-dialog-journal.txt"
rm -f "$journal"
wine "$root/build/rig/stand_in_dialog.exe" --view-after 300 >/dev/null 2>&1 &
for _ in $(seq 1 100); do grep -q '^ready' "$journal" 2>/dev/null && break; sleep 0.1; done
hwnd="$(sed -n 's/^ready pid=[0-9]* hwnd=//p' "$journal")"
settings="$localappdata/Orvanta/Brenlowpack/Settings/High Level Settings.json"
mkdir -p "$(dirname "$settings")"
[ -f "$settings" ] && cp "$settings" "$settings.demo-saved"
dialog_settings() {
  printf '{"apps":[{"app_id":"context-menu-replacement","status":"enabled","settings":{%s}}]}' \
    "$1" >"$settings"
}
demo_exe="$exe"
exe="$install/ContextMenuReplacement.Controller.exe"

ctl inject-dialog 0x1
dialog_settings '"dialogs.mode":"allowlist","dialogs.allowedProcessNames":["notepad.exe"]'
ctl inject-dialog "$hwnd"
dialog_settings '"dialogs.mode":"all-except","dialogs.excludedProcessNames":["notepad.exe"]'
ctl inject-dialog "$hwnd"
echo
echo "The dialog enrolment log:"
sed 's/^/  /' "$localappdata/Orvanta/Brenlowpack/Ravelin/Controller/Logs/Dialog enrolments.log"

rm -f "$settings"
[ -f "$settings.demo-saved" ] && mv "$settings.demo-saved" "$settings"
exe="$demo_exe"
unset CMR_RIG_JOURNAL
