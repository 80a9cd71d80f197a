// The state record against the real registry of the test prefix.

#include "state/lifecycle_state.h"

#include <gtest/gtest.h>

#include <vector>

#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/log.h"
#include "common/text.h"
#include "common/unique_handle.h"
#include "tests/support/todays_log.h"

namespace cmr {
namespace {

constexpr wchar_t kFamilyKey[] = L"Software\\Orvanta\\Brenlowpack";

struct RawValue {
  const wchar_t* name;
  DWORD type;
  std::vector<BYTE> data;
};

RawValue Dword(const wchar_t* name, DWORD value) {
  const BYTE* p = reinterpret_cast<const BYTE*>(&value);
  return {name, REG_DWORD, {p, p + sizeof(value)}};
}
RawValue Text(const wchar_t* name, const std::wstring& value, DWORD type = REG_SZ) {
  const BYTE* p = reinterpret_cast<const BYTE*>(value.c_str());
  return {name, type, {p, p + (value.size() + 1) * sizeof(wchar_t)}};
}

void SetRaw(const wchar_t* path, const std::vector<RawValue>& values) {
  UniqueHkey key;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_WRITE, nullptr, key.put(),
                              nullptr),
            ERROR_SUCCESS);
  for (const RawValue& v : values) {
    ASSERT_EQ(::RegSetValueExW(key.get(), v.name, 0, v.type, v.data.data(),
                               static_cast<DWORD>(v.data.size())),
              ERROR_SUCCESS);
  }
}

class LifecycleStateTest : public ::testing::Test {
 protected:
  void SetUp() override { ::RegDeleteTreeW(HKEY_CURRENT_USER, kFamilyKey); }
  void TearDown() override { ::RegDeleteTreeW(HKEY_CURRENT_USER, kFamilyKey); }
};

TEST_F(LifecycleStateTest, NeverEnabledReadsDefaultsAndWholeRecordRoundTrips) {
  EXPECT_EQ(ReadState(), LifecycleState{});
  LifecycleState state{true,
                       true,
                       true,
                       7,
                       true,
                       L"C:\\x.dll",
                       L"2026-11-23 13:00:00",
                       9,
                       0x01DC5C0011223344ull,
                       0x01DC5C0055667788ull};
  ASSERT_TRUE(WriteState(state).ok());
  EXPECT_EQ(ReadState(), state);
  // Rewriting with defaults stores every value again, never a subset.
  ASSERT_TRUE(WriteState(LifecycleState{}).ok());
  LifecycleState defaults;
  defaults.present = true;
  EXPECT_EQ(ReadState(), defaults);
  EXPECT_EQ(DeleteStateKey(), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(DeleteStateKey(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_FALSE(ReadState().present);
}

TEST_F(LifecycleStateTest, ValuesOfAnotherTypeReadAsDefaultsAndStringsAreCut) {
  const std::wstring long1500(1500, L'a');
  SetRaw(kStateKeyPath, {Text(L"SuppressionStrategy", L"1"),
                         Dword(L"RestartWindowStart", 5),
                         Text(L"FeatureEnabled", L"1"),
                         Dword(L"SuppressionApplied", 2),
                         Text(L"PriorOverrideValue", L"%SystemRoot%\\x.dll", REG_EXPAND_SZ),
                         Text(L"SuppressionAppliedAt", long1500),
                         {L"ExplorerRestarts", REG_BINARY, {1, 0, 0, 0}},
                         {L"LastExplorerStart", REG_BINARY, {1, 0, 0, 0, 0, 0, 0, 0}}});
  const LifecycleState state = ReadState();
  EXPECT_TRUE(state.present);
  EXPECT_EQ(state.suppressionStrategy, 0u);
  EXPECT_EQ(state.restartWindowStart, 0u);
  EXPECT_FALSE(state.featureEnabled);
  EXPECT_TRUE(state.suppressionApplied);
  EXPECT_EQ(state.priorOverrideValue, L"%SystemRoot%\\x.dll");
  EXPECT_EQ(state.suppressionAppliedAt, std::wstring(1023, L'a'));
  EXPECT_EQ(state.explorerRestarts, 0u);
  EXPECT_EQ(state.lastExplorerStart, 0u);
}

TEST_F(LifecycleStateTest, SideValuesStayOutOfTheRecord) {
  EXPECT_FALSE(ReadProbeVerdict().keyOpened);
  EXPECT_FALSE(ReadLastReplacementMode().has_value());
  EXPECT_EQ(WriteLastReplacementMode(4), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(ReadLastReplacementMode(), 4u);
  SetRaw(kStateKeyPath, {Dword(L"LastProbeVerdict", 2), Text(L"LastProbeDetail", L"why")});
  ASSERT_TRUE(WriteState(LifecycleState{}).ok());
  const ProbeVerdict probe = ReadProbeVerdict();
  EXPECT_TRUE(probe.keyOpened);
  EXPECT_EQ(probe.verdict, 2u);
  EXPECT_EQ(probe.detail, L"why");
  DeleteProbeVerdict();
  EXPECT_FALSE(ReadProbeVerdict().verdict.has_value());
  EXPECT_EQ(ReadProbeVerdict().detail, L"");
  EXPECT_EQ(ReadLastReplacementMode(), 4u);
}

struct MigrationCase {
  DWORD legacyApplied;
  const wchar_t* expectedPrior;  // after migration, new key held "y"
};

TEST_F(LifecycleStateTest, LegacyKeyOverwritesPriorOnlyWhenItRecordsAnAppliedSuppression) {
  for (const MigrationCase& c : {MigrationCase{1, L"x"}, MigrationCase{0, L"y"}}) {
    SetRaw(kStateKeyPath, {Text(L"PriorOverrideValue", L"y"), Dword(L"ExplorerRestarts", 3)});
    SetRaw(kLegacyStateKeyPath,
           {Dword(L"SuppressionApplied", c.legacyApplied), Text(L"priorOVERRIDEvalue", L"x"),
            Dword(L"ExplorerRestarts", 8), Dword(L"PriorOverrideKeyPresent", 1),
            Text(L"Unrelated", L"kept")});
    const LifecycleState state = ReadState();
    EXPECT_EQ(state.priorOverrideValue, c.expectedPrior) << c.legacyApplied;
    EXPECT_EQ(state.explorerRestarts, 3u);
    EXPECT_TRUE(state.priorOverrideKeyPresent);
    EXPECT_EQ(state.suppressionApplied, c.legacyApplied != 0);
    UniqueHkey legacy;
    EXPECT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, kLegacyStateKeyPath, 0, KEY_READ, legacy.put()),
              ERROR_FILE_NOT_FOUND);
    UniqueHkey current;
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, kStateKeyPath, 0, KEY_READ, current.put()),
              ERROR_SUCCESS);
    EXPECT_EQ(::RegQueryValueExW(current.get(), L"Unrelated", nullptr, nullptr, nullptr, nullptr),
              ERROR_SUCCESS);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kFamilyKey);
  }
}

size_t Count(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// A volatile family key refuses a non-volatile state key below it (error 1021): the state
// cannot be written, and the legacy key cannot be carried across, on every attempt.
TEST_F(LifecycleStateTest, UnwritableStateKeyFailsTheWriteAndKeepsTheLegacyKey) {
  ASSERT_TRUE(OpenLog(L"Ravelin", L"Controller", L""));
  const std::string warning =
      "[WARNING] [state] The pre-0.9.9 state key could not be carried across; it is kept and "
      "retried on the next read\n";
  const size_t before = Count(TodaysLog(), warning);
  UniqueHkey family;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, kFamilyKey, 0, nullptr, REG_OPTION_VOLATILE,
                              KEY_WRITE, nullptr, family.put(), nullptr),
            ERROR_SUCCESS);
  UniqueHkey legacy;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, kLegacyStateKeyPath, 0, nullptr,
                              REG_OPTION_VOLATILE, KEY_WRITE, nullptr, legacy.put(), nullptr),
            ERROR_SUCCESS);
  LifecycleState enabled;
  enabled.featureEnabled = true;
  const Status written = WriteState(enabled);
  EXPECT_EQ(written.message(), L"Could not open the state key for writing: 1021");
  EXPECT_FALSE(ReadState().present);
  EXPECT_EQ(Count(TodaysLog(), warning), before + 2);
}

}  // namespace
}  // namespace cmr
