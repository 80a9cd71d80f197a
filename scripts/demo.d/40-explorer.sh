# Explorer control against the test rig's stand-ins: a stand-in shell (explorer.exe) with two
# folder windows, the stand-in Hook beside a copy of the controller, and the stand-in shell
# window list in place of Wine's, which cannot count folder windows. All inside the sandbox.
section "Explorer control, against a stand-in Explorer and a stand-in Hook"
rig="$root/build/rig"
install="$WINEPREFIX/drive_c/demo-install"
mkdir -p "$install"
cp "$exe" "$root"/build/stage/Brenlow.ContextMenuReplacement.Hook.*.dll "$install/"
cp "$rig/explorer.exe" "$WINEPREFIX/drive_c/windows/explorer.exe"
list_key='HKLM\Software\Classes\CLSID\{9BA05972-F6A8-11CF-A442-00A0C90A8F39}\InprocServer32'
wine reg add "$list_key" /ve /d "$(winepath -w "$rig/stand_in_shell_windows.dll")" /f >/dev/null 2>&1
export CMR_RIG_JOURNAL='C:\demo-rig-journal.txt' CMR_RIG_EXPLORER='--shell'
journal="$WINEPREFIX/drive_c/demo-rig-journal.txt"
rm -f "$journal"
wine 'C:\windows\explorer.exe' --shell --folder 'C:\users' --folder 'C:\windows\system32' \
  --respawn 500 >/dev/null 2>&1 &
for _ in $(seq 1 100); do grep -q '^ready' "$journal" 2>/dev/null && break; sleep 0.1; done
demo_exe="$exe"
exe="$install/ContextMenuReplacement.Controller.exe"

ctl probe
ctl inject
ctl replacement modern
ctl context log fallback
ctl replacement sideways
ctl restart-explorer
for _ in $(seq 1 100); do [ "$(grep -c 'C:\\users$' "$journal")" -ge 2 ] && break; sleep 0.1; done
echo
echo "The stand-ins' journal (what reached them):"
sed 's/^/  /' "$journal"

wine reg add "$list_key" /ve /d 'C:\windows\system32\ieframe.dll' /f >/dev/null 2>&1
exe="$demo_exe"
unset CMR_RIG_JOURNAL CMR_RIG_EXPLORER
