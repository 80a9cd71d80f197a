#pragma once
// Loading a configuration source and handing it to the publisher: a standalone menu.json, or the
// shared settings file. Bad input never reaches the published folder.

#include <string>

#include "config/config_publisher.h"

namespace cmr {

// menu.json: it must exist; its ACL must pass the trust check before it is even read; then it is
// read, parsed (line comments allowed) and published with menu.json's fixed display globals.
[[nodiscard]] PublishResult LoadMenuFile(const std::wstring& path, PublishMode mode,
                                         ConfigPublisher& publisher);

// The settings file: read and parsed whole (globals and menu) first, so an error publishes
// nothing; then its globals are published, then the trust check decides whether its menu model
// is published too (a refused file still gets its globals applied).
[[nodiscard]] PublishResult LoadSettingsFile(const std::wstring& path, PublishMode mode,
                                             ConfigPublisher& publisher);

}  // namespace cmr
