// The state record against the real registry of the test prefix.

#include "state/lifecycle_state.h"

#include <gtest/gtest.h>

#include "common/unique_handle.h"

namespace cmr {
namespace {

constexpr wchar_t kFamilyKey[] = L"Software\\Orvanta\\Brenlowpack";

// Stores `data` under HKCU\`path` as it is: text with its NUL, or a number's bytes ({5, 0} is
// DWORD 5).
void Set(const wchar_t* path, const wchar_t* name, DWORD type, const std::wstring& data) {
  const size_t units = data.size() + (type == REG_SZ || type == REG_EXPAND_SZ ? 1 : 0);
  ASSERT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, path, name, type, data.c_str(),
                              static_cast<DWORD>(units * sizeof(wchar_t))),
            ERROR_SUCCESS);
}

class LifecycleStateTest : public ::testing::Test {
 protected:
  void SetUp() override { ::RegDeleteTreeW(HKEY_CURRENT_USER, kFamilyKey); }
  void TearDown() override { ::RegDeleteTreeW(HKEY_CURRENT_USER, kFamilyKey); }
};

// The whole record is written every time, defaults too, and side values stay out of it. Read
// back, a number of another type reads as its default, both string types read, and a string is
// cut at the bound of its buffer.
TEST_F(LifecycleStateTest, WholeRecordRoundTripsAndOddValuesReadAsDefaults) {
  EXPECT_EQ(ReadState(), LifecycleState{});
  LifecycleState state{true, true, true, 7, true, L"C:\\x.dll", L"2026-11-23 13:00:00", 9};
  state.restartWindowStart = 0x01DC5C0011223344ull;
  state.lastExplorerStart = 0x01DC5C0055667788ull;
  ASSERT_TRUE(WriteState(state).ok());
  EXPECT_EQ(ReadState(), state);
  EXPECT_EQ(WriteLastReplacementMode(4), static_cast<DWORD>(ERROR_SUCCESS));
  ASSERT_TRUE(WriteState(LifecycleState{}).ok());
  EXPECT_EQ(ReadState(), (LifecycleState{true, false, false, 0, false, {}, {}}));
  EXPECT_EQ(ReadLastReplacementMode(), 4u);
  Set(kStateKeyPath, L"SuppressionStrategy", REG_SZ, L"1");
  Set(kStateKeyPath, L"RestartWindowStart", REG_DWORD, {5, 0});
  Set(kStateKeyPath, L"FeatureEnabled", REG_BINARY, std::wstring(2, L'\x1'));
  Set(kStateKeyPath, L"ExplorerRestarts", REG_QWORD, std::wstring(4, L'\x1'));
  Set(kStateKeyPath, L"SuppressionApplied", REG_DWORD, {2, 0});
  Set(kStateKeyPath, L"PriorOverrideValue", REG_EXPAND_SZ, std::wstring(1023, L'b'));
  Set(kStateKeyPath, L"SuppressionAppliedAt", REG_SZ, std::wstring(1024, L'a'));
  Set(kStateKeyPath, L"LastExplorerStart", REG_BINARY, std::wstring(4, L'\x1'));
  EXPECT_EQ(ReadState(), (LifecycleState{true, true, false, 0, false, std::wstring(1023, L'b'),
                                         std::wstring(1023, L'a')}));
  EXPECT_EQ(DeleteStateKey(), static_cast<DWORD>(ERROR_SUCCESS));
  EXPECT_EQ(DeleteStateKey(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

// The pre-0.9.9 key is carried across on a read and deleted, its prior winning only when it
// records an applied suppression; under a volatile family key (error 1021) it stays.
TEST_F(LifecycleStateTest, LegacyKeyIsCarriedAcrossOnceAndKeptWhileItCannotBe) {
  for (const DWORD legacyApplied : {1u, 0u}) {
    Set(kStateKeyPath, L"PriorOverrideValue", REG_SZ, L"y");
    Set(kStateKeyPath, L"ExplorerRestarts", REG_DWORD, {3, 0});
    Set(kLegacyStateKeyPath, L"SuppressionApplied", REG_DWORD,
        {static_cast<wchar_t>(legacyApplied), 0});
    Set(kLegacyStateKeyPath, L"priorOVERRIDEvalue", REG_SZ, L"x");
    Set(kLegacyStateKeyPath, L"ExplorerRestarts", REG_DWORD, {8, 0});
    Set(kLegacyStateKeyPath, L"PriorOverrideKeyPresent", REG_DWORD, {1, 0});
    const LifecycleState state = ReadState();
    EXPECT_EQ(state.priorOverrideValue, legacyApplied ? L"x" : L"y");
    EXPECT_EQ(state.explorerRestarts, 3u);
    EXPECT_TRUE(state.priorOverrideKeyPresent);  // missing in the new key: copied either way
    EXPECT_EQ(::RegDeleteTreeW(HKEY_CURRENT_USER, kLegacyStateKeyPath), ERROR_FILE_NOT_FOUND);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kFamilyKey);
  }
  for (const wchar_t* path : {kFamilyKey, kLegacyStateKeyPath}) {
    UniqueHkey key;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, path, 0, nullptr, REG_OPTION_VOLATILE, KEY_WRITE,
                                nullptr, key.put(), nullptr),
              ERROR_SUCCESS);
  }
  EXPECT_FALSE(WriteState(LifecycleState{}).ok());
  EXPECT_FALSE(ReadState().present);
  // Still there to be deleted.
  EXPECT_EQ(::RegDeleteTreeW(HKEY_CURRENT_USER, kLegacyStateKeyPath), ERROR_SUCCESS);
}

}  // namespace
}  // namespace cmr
