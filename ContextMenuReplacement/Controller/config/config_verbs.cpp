#include "config/config_verbs.h"

#include <fmt/xchar.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "common/console.h"
#include "common/data_paths.h"
#include "common/file_io.h"
#include "common/file_time.h"
#include "common/json_text.h"
#include "common/unique_handle.h"
#include "config/config_loader.h"
#include "config/config_publisher.h"
#include "config/config_trust.h"
#include "config/menu_document.h"

namespace cmr {

namespace {

// Without a file argument the source is the shared settings file; never the shipped defaults.
std::wstring SourcePath(const ConfigArguments& arguments) {
  return arguments.file.empty() ? SettingsFilePath() : arguments.file;
}

PublishResult Load(const ConfigArguments& arguments, PublishMode mode) {
  ConfigPublisher publisher;
  return arguments.file.empty() ? LoadSettingsFile(SettingsFilePath(), mode, publisher)
                                : LoadMenuFile(arguments.file, mode, publisher);
}

void PrintMessages(const PublishResult& result) {
  const OutputBatch batch;
  for (const std::wstring& warning : result.warnings) PrintLine(L"  warning: %s", warning);
  for (const std::wstring& error : result.errors) PrintLine(L"  error:   %s", error);
}

void PrintPublicationReport(const PublishResult& result) {
  PrintMessages(result);
  if (result.published) {
    PrintLine(
        L"Published version %lu (%lu bytes): %zu profile(s), %zu item(s), %zu user "
        L"command(s).",
        result.version, result.snapshotBytes, result.profileCount, result.itemCount,
        result.userCommandCount);
    PrintLine(L"The next menu uses it. Explorer does not need to restart.");
  } else {
    PrintLine(
        L"Nothing was published. The previously published configuration is still in "
        L"effect,");
    PrintLine(L"so the context menu keeps working while this is fixed.");
  }
}

int Init(const ConfigArguments& arguments) {
  const std::wstring source = SourcePath(arguments);
  if (Status written = WriteStarterDocument(source); !written) {
    PrintLine(L"%s", written.message());
    return 1;
  }
  PrintLine(L"Wrote a starter configuration to %s", source);
  PrintLine(L"Edit it, then run 'config publish' or leave 'config watch' running.");
  return 0;
}

int Path(const ConfigArguments& arguments) {
  PrintLine(L"%s", SourcePath(arguments));
  return 0;
}

int Check(const ConfigArguments& arguments) {
  MessageList messages;
  const bool accepted = CheckConfigurationTrust(SourcePath(arguments), messages);
  PrintIndentedLines(messages);
  if (accepted) {
    PrintLine(L"ACL accepted: only you, SYSTEM and Administrators can modify this file.");
  } else {
    PrintLine(L"ACL REJECTED. This file will not be published until its permissions are fixed.");
  }
  return accepted ? 0 : 1;
}

int Validate(const ConfigArguments& arguments) {
  if (!arguments.file.empty()) {
    Print(L"config validate reads the settings file; it takes no path argument.\n");
    return 1;
  }
  const std::wstring source = SettingsFilePath();
  const PublishResult result = Load(arguments, PublishMode::checkOnly);
  if (arguments.json) {
    // Validation publishes nothing; the version reported is the one in force.
    ControlReading control;
    const uint32_t publishedVersion = ReadControl(ControlFilePath(), control) ? control.version : 0;
    // One line for the Settings application, never cut however many messages it carries.
    Print(L"%s\n",
          fmt::format(L"{{\"source\":{},\"aclAccepted\":{},\"valid\":{},\"profileCount\":{},"
                      L"\"itemCount\":{},\"userCommandCount\":{},\"snapshotBytes\":{},"
                      L"\"publishedVersion\":{},\"errors\":{},\"warnings\":{}}}",
                      JsonQuote(source), result.aclAccepted, result.valid, result.profileCount,
                      result.itemCount, result.userCommandCount, result.snapshotBytes,
                      publishedVersion, JsonStringArray(result.errors),
                      JsonStringArray(result.warnings)));
  } else {
    PrintLine(L"Validating %s", source);
    PrintMessages(result);
    if (!result.errors.empty()) {
      PrintLine(L"Not valid; nothing was published.");
    } else {
      PrintLine(L"Valid. %zu profile(s), %zu item(s), %zu user command(s). Nothing was published.",
                result.profileCount, result.itemCount, result.userCommandCount);
    }
  }
  return result.valid ? 0 : 1;
}

int Publish(const ConfigArguments& arguments) {
  PrintLine(L"Publishing %s", SourcePath(arguments));
  const PublishResult result = Load(arguments, PublishMode::publish);
  PrintPublicationReport(result);
  return result.published ? 0 : 1;
}

// The files of a folder (its subfolders left out) with their sizes and write times.
using FolderListing = std::vector<std::tuple<std::wstring, uint64_t, uint64_t>>;

FolderListing ListFiles(const std::wstring& folder) {
  FolderListing files;
  WIN32_FIND_DATAW entry{};
  UniqueFind find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &entry));
  if (!find) return files;
  do {
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    files.emplace_back(entry.cFileName,
                       (static_cast<uint64_t>(entry.nFileSizeHigh) << 32) | entry.nFileSizeLow,
                       FileTimeToInteger(entry.ftLastWriteTime));
  } while (::FindNextFileW(find.get(), &entry));
  std::sort(files.begin(), files.end());
  return files;
}

int Watch(const ConfigArguments& arguments) {
  const std::wstring source = SourcePath(arguments);
  PrintLine(L"Watching %s", source);
  PrintLine(L"Saving the file republishes it. Press Ctrl+C to stop.");
  PrintLine(L"");
  PrintPublicationReport(Load(arguments, PublishMode::publish));

  // A relative file argument still has a folder: the current directory.
  wchar_t full[MAX_PATH * 4] = {};
  const DWORD length = ::GetFullPathNameW(source.c_str(), MAX_PATH * 4, full, nullptr);
  const std::wstring folder = ParentFolder(length > 0 ? std::wstring(full, length) : source);
  UniqueChangeNotification change(::FindFirstChangeNotificationW(
      folder.c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_LAST_WRITE));
  if (!change) {
    PrintLine(L"Could not watch '%s': %lu", folder, ::GetLastError());
    return 0;
  }
  // Windows reports a change inside a subfolder as a write to the subfolder itself, so a
  // menu.json kept beside the published folder would wake the loop with every publication the
  // loop makes, for ever. A wake-up that changed none of the folder's files is not a change.
  FolderListing files = ListFiles(folder);
  for (;;) {
    // Whoever reads the pipe sees the report before the loop goes quiet.
    FlushStandardOutput();
    if (::WaitForSingleObject(change.get(), INFINITE) != WAIT_OBJECT_0) break;
    // Editors save in bursts (truncate, write, rename, touch); let the burst settle into one
    // cycle before re-arming.
    ::Sleep(250);
    if (!::FindNextChangeNotification(change.get())) break;
    FolderListing now = ListFiles(folder);
    if (now == files) continue;
    files = std::move(now);
    PrintLine(L"");
    PrintLine(L"Change detected.");
    PrintPublicationReport(Load(arguments, PublishMode::publish));
  }
  return 0;
}

int ShowStatus(const ConfigArguments& arguments) {
  const std::wstring source = SourcePath(arguments);
  ControlReading control;
  // A control file that only carries globals says version 0 and has no snapshot-0.bin beside
  // it; version 0 with its snapshot is a real publication, reached when the count wraps.
  if (!ReadControl(ControlFilePath(), control) ||
      (control.version == 0 && !FileExists(SnapshotFilePath(0)))) {
    PrintLine(L"No configuration has been published yet.");
    PrintLine(L"File: %s (%s)", source, FileExists(source) ? L"exists" : L"not present");
    return 0;
  }
  PrintLine(L"Published version %lu (layout %lu)", control.version, control.layout);
  PrintLine(L"File:     %s", source);
  PrintLine(L"Snapshot: %s", SnapshotFilePath(control.version));
  return 0;
}

struct ActionRow {
  const wchar_t* word;
  int (*handler)(const ConfigArguments&);
};

constexpr ActionRow kActions[] = {
    {L"init", Init},       {L"path", Path},   {L"check", Check},       {L"validate", Validate},
    {L"publish", Publish}, {L"watch", Watch}, {L"status", ShowStatus},
};

}  // namespace

int RunConfigVerb(const ConfigArguments& arguments) {
  for (const ActionRow& row : kActions) {
    if (arguments.action == row.word) return row.handler(arguments);
  }
  // The list leaves out 'validate'; callers match the text as it stands.
  Print(L"Unknown config action '%s'. Use init, path, check, publish, watch, or status.\n",
        arguments.action);
  return 1;
}

}  // namespace cmr
