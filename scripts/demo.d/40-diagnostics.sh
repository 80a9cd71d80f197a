# The watchdog records, the classic-row icon lookup and the first-party command inventory.
records='HKCU\Software\Orvanta\Brenlowpack\Ravelin'
wine reg delete "$records\\DialogCrashExclusions" /f >/dev/null 2>&1 || true
wine reg delete "$records\\ProviderStrikes" /f >/dev/null 2>&1 || true

section "Programs turned off after a file-dialog crash (the tray program writes these)"
ctl dialog-crashes
wine reg add "$records\\DialogCrashExclusions" /v notepad.exe /t REG_QWORD /d 0x01DD78D8000B6A00 /f >/dev/null
ctl dialog-crashes
ctl dialog-crashes --json
ctl dialog-crashes clear Notepad.exe
ctl dialog-crashes clear notepad.exe

section "Handlers struck by the hook's watchdog"
key="$records\\ProviderStrikes\\{6A1C2F0E-1111-4C4C-9A9A-0123456789AB}"
wine reg add "$key" /v Name /t REG_SZ /d Archiver /f >/dev/null
# Three faults within a week: 2026-11-13, 11-18 and 11-20, 10:15 UTC (FILETIMEs, little-endian).
wine reg add "$key" /v Strikes /t REG_BINARY /d 002A27D75773DD0100EA37AB4577DD01006A0B00D878DD01 /f >/dev/null
ctl provider-strikes
ctl provider-strikes --json
ctl provider-strikes clear Shell.Application
ctl provider-strikes clear '{6A1C2F0E-1111-4C4C-9A9A-0123456789AB}'

section "Classic-row icons, one request per line on standard input"
printf 'handler\t{20D04FE0-3AEA-1069-A2D8-08002B30309D}\tThis PC\nverb\tDirectory\\Background\tcmd\nverb\t*\n' |
  wine "$exe" classic-icons --json

section "First-party command inventory"
ctl inventory --json
ctl inventory
