# Switching the feature on and off, and the self-healing after an unclean shutdown.
override='HKCU\Software\Classes\CLSID\{86ca1aa0-34aa-4e8b-a509-50c905bae2a2}\InprocServer32'
runonce='HKCU\Software\Microsoft\Windows\CurrentVersion\RunOnce'

section "Capability probe (changes nothing)"
ctl install

section "Enable: first only the disclosure, nothing is changed"
ctl enable

section "Enable for real (Explorer restart left to the caller)"
ctl enable --yes --no-restart

section "Status, as a person reads it and as Settings polls it"
ctl status
ctl status --json

section "Disable: the hook is made inert and the prior preference comes back"
ctl disable
ctl status --json

section "An unclean shutdown while enabled, healed at the next logon"
ctl enable --yes --no-restart >/dev/null
echo "(the feature is on; the boot-time restore is armed:)"
wine reg query "$runonce" /v BnlxContextMenuReplacementRestore 2>/dev/null | grep Bnlx || true
echo "(a disable is cut off by a power loss after recording the feature off, before it restored"
echo " the preference; at the next logon Windows runs the RunOnce entry:)"
wine reg add 'HKCU\Software\Orvanta\Brenlowpack\Ravelin' /v FeatureEnabled /t REG_DWORD /d 0 /f >/dev/null
ctl boot-restore
echo "(override key after the restore:)"
wine reg query "$override" 2>&1 | head -3 || true

section "Uninstall: an unconditional restore that also forgets everything"
ctl enable --yes --no-restart >/dev/null
ctl uninstall
