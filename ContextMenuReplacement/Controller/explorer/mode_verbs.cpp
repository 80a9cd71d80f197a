#include "explorer/mode_verbs.h"

#include <string_view>

#include "common/console.h"
#include "explorer/hook_channel.h"
#include "state/lifecycle_state.h"

namespace cmr {

namespace {

struct ModeWord {
  std::wstring_view word;
  intptr_t argument;
  const wchar_t* label;
};

constexpr ModeWord kSuppressionModes[] = {
    {L"off", 0, L"suppression off"},
    {L"classnotreg", 1, L"suppression on (REGDB_E_CLASSNOTREG)"},
    {L"efail", 2, L"suppression on (E_FAIL)"},
};

constexpr ModeWord kCaptureModes[] = {
    {L"off", 0, L"context capture off"},
    {L"log", 1, L"context capture on (log only)"},
    {L"overlay", 3, L"context capture on (log and overlay)"},
};

constexpr ModeWord kReplacementModes[] = {
    {L"off", 0, L"Replacement off"},
    {L"fail", 2, L"Forced-failure fallback on"},
    {L"native", 3, L"Native-menu adapter on"},
    {L"modern", 4, L"Native-menu adapter plus first-party modern commands on"},
};

constexpr intptr_t kCaptureFallbackFlag = 4;

// Exact comparison, length and content: "Off" and "off " are unknown words.
template <size_t N>
const ModeWord* FindMode(const ModeWord (&modes)[N], const std::wstring& word) {
  for (const ModeWord& mode : modes) {
    if (mode.word == word) return &mode;
  }
  return nullptr;
}

}  // namespace

int RunSuppressVerb(const std::wstring& word) {
  const ModeWord* mode = FindMode(kSuppressionModes, word);
  if (!mode) {
    Print(L"Unknown suppression mode '%s'. Use off, classnotreg, or efail.\n", word);
    return 1;
  }
  const int result = SendCommand(hook_command::kSuppression, mode->label, mode->argument, 0);
  if (result == 0 && mode->argument != 0) {
    PrintLine(L"");
    PrintLine(L"IMPORTANT: the class is activated once per view, so this only affects Explorer");
    PrintLine(L"windows opened from now on. Open a NEW Explorer window before testing.");
    PrintLine(L"If anything goes wrong, run disable_menu_hook.cmd.");
  }
  return result;
}

int RunContextVerb(const std::wstring& word, bool fallback) {
  const ModeWord* mode = FindMode(kCaptureModes, word);
  if (!mode) {
    Print(L"Unknown capture mode '%s'. Use off, log, or overlay.\n", word);
    return 1;
  }
  // "fallback" never turns capture on: "off" stays 0, but its explanation still follows.
  const bool withFallback = fallback && mode->argument != 0;
  const int result =
      withFallback ? SendCommand(hook_command::kContextCapture,
                                 L"context capture on (with the IShellWindows fallback)",
                                 mode->argument | kCaptureFallbackFlag, 0)
                   : SendCommand(hook_command::kContextCapture, mode->label, mode->argument, 0);
  if (result == 0 && fallback) {
    PrintLine(L"");
    PrintLine(L"The IShellWindows fallback makes a COM call that can cross apartments, and a");
    PrintLine(L"cross-apartment call from an STA pumps messages inside Explorer's own menu");
    PrintLine(L"handling. The desktop has no alternative and always uses it; extending it to");
    PrintLine(L"folder views is for finding out whether it is ever needed there, not a setting.");
  }
  return result;
}

int RunReplacementVerb(const std::wstring& word) {
  const ModeWord* mode = FindMode(kReplacementModes, word);
  if (!mode) {
    Print(L"Unknown replacement mode '%s'. Use off, native, modern, or fail.\n", word);
    return 1;
  }
  const int result = SendCommand(hook_command::kReplacementMode, mode->label, mode->argument, 0);
  // Recorded whatever the send gave, so a later enable or inject repairs Hooks that missed it.
  if (const DWORD error = WriteLastReplacementMode(static_cast<uint32_t>(mode->argument));
      error != ERROR_SUCCESS) {
    PrintLine(
        L"Could not persist the replacement mode for future 'enable'/'inject' repairs (error %ld).",
        static_cast<long>(error));
  }
  return result;
}

int RunTopologyVerb() {
  return SendCommand(hook_command::kTopologyDump, L"topology dump", 0, 0);
}

int RunRescanVerb() {
  return SendCommand(hook_command::kModuleRescan, L"module rescan", 0, 0);
}

int RunResetFlashVerb() {
  return SendCommand(hook_command::kFlashCounterReset, L"flash counter reset", 0, 0);
}

int RunDiscoverVerb() {
  return SendCommand(hook_command::kCommandDiscovery, L"command discovery probe", 0, 0);
}

}  // namespace cmr
