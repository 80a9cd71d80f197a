#pragma once
// `provider-strikes`: the context menu handlers the hook's watchdog has struck against.
//
// Record format (written by the hook's watchdog, read here):
//   HKCU\Software\Orvanta\Brenlowpack\Ravelin\ProviderStrikes\<{CLSID}>
//     Name        REG_SZ       the handler's display name when the hook knew it
//     Strikes     REG_BINARY   FILETIMEs (UTC, 8 bytes each, little-endian) of its faults,
//                              oldest first; trailing bytes short of a whole FILETIME are ignored
//     LastFault   REG_SZ       the hook's one-line description of the newest fault
//   A strike counts while it lies within seven days of the handler's newest strike; three
//   counting strikes and the hook no longer activates the handler. Older strikes are expired.
//   A missing or mistyped value reads as absent (no name, no strikes, no fault text).
//
// Console texts:
//   (no records)  "No context menu handler has been struck by the watchdog."
//   (records)     "Context menu handlers struck by the watchdog:" then per handler
//                 "  <{CLSID}> '<name>': <n> of 3 strikes within seven days; no longer
//                 activated." (or "; still activated."; "(unnamed)" without a name), its
//                 strikes "    <YYYY-MM-DD HH:MM:SS> UTC" with " (expired)" after old ones,
//                 and "    Last fault: <text>" when recorded.
//   --json        [{"clsid","name","blocked","strikes":[{"at","expired"}],"lastFault"}], name
//                 and lastFault null when absent; one line.
//   clear         "The strike record of handler '<clsid>' was removed; the hook may activate it
//                 again." (exit 0), "No strike record exists for handler '<clsid>'." (1),
//                 "'<arg>' is not a CLSID; write it as {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}."
//                 (1)
//   bad arguments "Unknown provider-strikes argument '<arg>'.", "provider-strikes clear needs a
//                 handler CLSID.", "Unexpected argument '<arg>'." (all exit 1)

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cmr {

inline constexpr wchar_t kProviderStrikesKey[] =
    L"Software\\Orvanta\\Brenlowpack\\Ravelin\\ProviderStrikes";

inline constexpr uint64_t kStrikeWindow = 7ull * 24 * 60 * 60 * 10'000'000;  // 100-ns units
inline constexpr size_t kStrikesToBlock = 3;

struct StrikeVerdict {
  std::vector<bool> expired;  // one per strike, in the record's order
  size_t counting = 0;        // strikes within the window of the newest
  bool blocked = false;
};

// Pure: judges a record's strike times (any order) against the seven-day window of the newest.
[[nodiscard]] StrikeVerdict JudgeStrikes(const std::vector<uint64_t>& strikes);
// Pure: the FILETIMEs of a `Strikes` value's bytes.
[[nodiscard]] std::vector<uint64_t> DecodeStrikes(std::string_view bytes);
// Whether `text` is a CLSID in braces as CLSIDFromString reads it. CLSIDFromString also turns
// a ProgID into its CLSID, which must not pass here, so the braces are required first.
[[nodiscard]] bool IsClsidText(const std::wstring& text);

// `args` are the arguments after the verb. Returns the exit code.
[[nodiscard]] int RunProviderStrikesVerb(const std::vector<std::wstring>& args);

}  // namespace cmr
