#include "explorer/hook_builds.h"

#include <gtest/gtest.h>

namespace cmr {
namespace {

// Any build's Hook is "Brenlow.ContextMenuReplacement.Hook*.dll", letters in any case; this
// build's own file is never an earlier build, whatever its case.
constexpr std::pair<const wchar_t*, bool> kNames[] = {
    {L"Brenlow.ContextMenuReplacement.Hook.1.0.9.0.dll", true},
    {L"brenlow.contextmenureplacement.hook.1.0.9.0.DLL", true},
    {L"Brenlow.ContextMenuReplacement.Hook.dll", true},
    {L"Brenlow.ContextMenuReplacement.Hook.1.0.10.0.dll", false},
    {L"BRENLOW.CONTEXTMENUREPLACEMENT.HOOK.1.0.10.0.DLL", false},
    {L"Brenlow.ContextMenuReplacement.Hoo.dll", false},
    {L"Brenlow.ContextMenuReplacement.Hook.1.0.9.0.dl", false},
    {L"xBrenlow.ContextMenuReplacement.Hook.dll", false},
};

TEST(HookBuilds, EarlierBuildNames) {
  for (const auto& [name, earlier] : kNames)
    EXPECT_EQ(IsEarlierBuildHookName(name), earlier) << name;
}

}  // namespace
}  // namespace cmr
