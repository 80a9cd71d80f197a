#pragma once
// The verbs that are nothing but one Hook command: each reads its word, sends one command to
// every Explorer process and returns the send result.

#include <string>

namespace cmr {

int RunSuppressVerb(const std::wstring& word);
// `fallback`: the word after the mode was "fallback".
int RunContextVerb(const std::wstring& word, bool fallback);
// Also records the mode as LastReplacementMode for later repairs.
int RunReplacementVerb(const std::wstring& word);
int RunTopologyVerb();
int RunRescanVerb();
int RunResetFlashVerb();
int RunDiscoverVerb();

}  // namespace cmr
