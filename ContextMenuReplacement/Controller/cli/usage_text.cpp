#include "cli/usage_text.h"

#include "common/console.h"

namespace cmr {

namespace {

// One entry per printed line; each is printed with a line feed. Blank entries separate groups.
constexpr const wchar_t* kUsageLines[] = {
    L"ContextMenuReplacement.Controller",
    L"",
    L"Usage: ContextMenuReplacement.Controller.exe <verb> [argument]",
    L"",
    L"Lifecycle:",
    L"  install    Capability probe. Reports whether this machine can run Ravelin",
    L"             and which suppression strategies are available. Changes nothing.",
    L"  enable [--yes] [--strategy classic|refusal] [--force] [--no-restart]",
    L"             Turn the feature on. Without --yes it only discloses what it would",
    L"             change and exits. The classic strategy switches Windows to classic",
    L"             context menus, records your prior preference first, arms a boot-time",
    L"             restore, and restarts Explorer. --no-restart applies everything but",
    L"             leaves the restart to the caller, which is what the Settings page needs",
    L"             in order to ask before taking Explorer away.",
    L"  disable    Make the hook inert AND restore your menu preference. Never restarts",
    L"             Explorer: this is the verb you reach for when something is wrong.",
    L"  uninstall  Unconditional restore, disarm the boot-time restore, clear all state.",
    L"  boot-restore  Internal. The RunOnce target that self-heals after an unclean",
    L"             shutdown or a force-uninstall.",
    L"",
    L"Diagnostic and hook-management verbs:",
    L"  probe      Enumerate Explorer UI threads and shell windows. Injects nothing.",
    L"  inject     Load the hook into every Explorer process, and nothing else. This is",
    L"             the raw step 'enable' performs last; test procedures use it directly.",
    L"  inject-dialog <hwnd>",
    L"             Load the hook into the application owning a File Open/Save dialog, when",
    L"             Ravelin is enabled and Settings makes that application eligible",
    L"             (all programs except the exclusion list, or only the allowlist).",
    L"             SystemTray calls this; it does nothing for any other window.",
    L"  dialog-crashes [--json] | dialog-crashes clear <name>",
    L"             List the programs SystemTray turned off after they crashed with the hook",
    L"             loaded, or allow one again.",
    L"  provider-strikes [--json] | provider-strikes clear <clsid>",
    L"             List the context menu handlers the hook's watchdog has struck against",
    L"             (three strikes in seven days and it is no longer activated), or clear one.",
    L"  reconcile [--force] [--allow-restart]",
    L"             Repair/bootstrap an enabled Settings state: publish both snapshots,",
    L"             establish lifecycle state if needed, inject, and resend modern mode.",
    L"             --allow-restart lets the bootstrap restart Explorer when it had to",
    L"             switch this account to classic menus; Explorer reads that preference",
    L"             when it starts, so without the restart nothing appears until the next",
    L"             logon. For callers with no user to ask, such as SystemTray.",
    L"  status [--json]",
    L"             Report preference, recorded state, configuration and the hook's own",
    L"             suppression probe - which is what says whether the classic path is",
    L"             GENUINELY in use, as opposed to the registry write having succeeded.",
    L"             --json reports state only and does NOT ask the hook to publish a",
    L"             verdict, so a UI can poll it without writing anything.",
    L"  topology   Re-dump Explorer's window topology to the hook log.",
    L"  rescan     Re-apply trace patches to modules loaded since init.",
    L"  resetflash Reset the native-menu sighting counters.",
    L"  disable    Make the hook inert. Explorer must restart to unload the module.",
    L"",
    L"  context <off|log|overlay> [fallback]",
    L"             Shell context capture on each intercepted menu. 'log' writes",
    L"             the captured target to the hook log; 'overlay' also shows it on screen",
    L"             beside the menu. Add 'fallback' to permit the IShellWindows path for",
    L"             non-desktop frames too; the desktop always uses it, because Progman",
    L"             does not answer WM_GETISHELLBROWSER. Default is 'log'.",
    L"",
    L"  replacement <off|native|modern|fail>",
    L"             context-menu replacement.",
    L"             'fail' forces initialization failure and proves same-invocation",
    L"             fallback to Explorer's untouched native menu.",
    L"             'native' enables the captured-native-menu adapter.",
    L"             'modern' adds first-party IExplorerCommand entries on top.",
    L"",
    L"  inventory [--json]",
    L"             Probe the checked-in first-party command inventory from THIS process:",
    L"             activation, site support, canonical name and applicable contexts.",
    L"             Injects nothing and touches no Explorer thread. '--json' emits the",
    L"             static table only, for the Settings page's command picker; it skips",
    L"             the activation probe, which is the slow part.",
    L"",
    L"  classic-icons --json",
    L"             Read classic-row icon requests from stdin, one per line",
    L"             ('handler<TAB>{CLSID}<TAB>label' or 'verb<TAB>root<TAB>verb path'),",
    L"             and answer each with the icon the menu would draw from the registry.",
    L"             For the Settings Builder.",
    L"",
    L"  discover   Arm the one-shot IExplorerCommandProvider enumeration in the hook. The",
    L"             next context menu runs it and writes what it found to the hook log.",
    L"             Diagnostic only; nothing it enumerates reaches a menu.",
    L"",
    L"  model-contracts <schema> <fixtures-directory> <desktop-baseline>",
    L"             Run the renderer-neutral schema, identity, matching, ordering and",
    L"             popup-session decision tests. Changes no product or Explorer state.",
    L"",
    L"  custom-model publish <schema> <baseline>",
    L"             Validate a shipped baseline and atomically publish the pointer-free",
    L"             snapshot consumed by the registry-gated custom popup.",
    L"  custom-model publish-user <schema> <baseline> <overlay> [--json]",
    L"             Validate the baseline and the user's overlay separately, merge the",
    L"             overlay onto the baseline, and publish the merged snapshot. An overlay",
    L"             that fails validation or merge is never published.",
    L"  custom-model validate-user <schema> <baseline> <overlay> [--json]",
    L"             The same validation and merge as publish-user, with nothing written and",
    L"             no snapshot version burned - keystroke-time feedback.",
    L"  custom-model effective <target> [--json]",
    L"             Prints the published snapshot's tree shape for one target (desktop,",
    // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one usage line, split for width
    L"             folder-background, folder-item, drive, file-item, or file:<ext>). No live "
    L"Explorer",
    L"             context, so extension slots print as themselves rather than expanding.",
    L"  custom-model reset <schema> <baseline> [target]",
    L"             With no target, drops the user's overlay entirely and republishes the",
    L"             baseline alone. With a target (desktop, folder-background, folder-item,",
    L"             drive, file-item, or file:<ext>), removes only that target's "
    L"layouts/node_overrides/",
    L"             insertions and target-scoped extension rules from the overlay, then "
    L"republishes.",
    L"  custom-model preview <target>",
    L"             Arms the hook to show the custom popup for a synthetic target instead",
    L"             of a real right-click. Fails if the hook is not injected. The hook side",
    L"             is a stub in this pass - it logs the request rather than rendering yet.",
    L"",
    L"  config <init|path|check|validate|publish|watch|status> [file] [--json]",
    L"             User configuration. With no file the source is the pack's shared",
    L"             High Level Settings.json; a file argument means a standalone",
    L"             menu.json. 'init' writes a commented starter file; 'check' reports",
    L"             whether the ACL lets anyone unexpected modify it; 'validate' reports",
    L"             what is wrong WITHOUT publishing; 'publish' validates and publishes a",
    L"             snapshot the hook picks up on the next menu, with no Explorer restart;",
    L"             'watch' republishes on every save. A configuration that fails",
    L"             validation is never published, so the last good one keeps working",
    L"             while a typo is fixed. '--json' applies to 'validate'.",
    L"",
    L"Behavior-changing verb:",
    L"  suppress <off|classnotreg|efail>",
    L"             Refuse activation of the Windows 11 context-menu class, so Explorer",
    L"             is pushed onto its classic fallback. Affects only views created",
    L"             afterwards. Writes nothing to the registry and does not change the",
    L"             user's modern/classic preference.",
    L"",
};

}  // namespace

std::wstring UsageText() {
  std::wstring text;
  for (const wchar_t* line : kUsageLines) {
    text += line;
    text += L'\n';
  }
  return text;
}

void PrintUsage() {
  Print(L"%s", UsageText());
}

}  // namespace cmr
