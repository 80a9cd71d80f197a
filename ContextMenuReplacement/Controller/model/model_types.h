#pragma once
// The typed custom menu model: what the baseline and overlay documents parse into, what
// inheritance resolution and the overlay merge produce, and what the snapshot compiler reads.
// Containers own their elements by value.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace cmr {

// Numeric values are carried into the custom model snapshot; keep them.
enum class IdentityKind : uint32_t {
  invalid = 0,
  windows = 1,
  comCanonical = 2,
  comCatalog = 3,
  product = 4,
  user = 5,
  ephemeral = 6,
};

struct CommandIdentity {
  std::wstring text;
  IdentityKind kind = IdentityKind::invalid;
};

enum class DocumentKind { baseline, overlay };

// Numbering shared with MenuTarget and the snapshot's layout rows.
enum class SelectionArity : uint32_t { any = 0, none = 1, single = 2, multi = 3 };

// Target family; the same numbers as MenuTarget and the snapshot's layout rows.
enum class ContextFamily : uint32_t {
  desktop = 0,
  folderBackground = 1,
  folderItem = 2,
  drive = 3,
  namespaceItem = 4,
  fileItem = 5,
  taskbarBackground = 6,
  taskbarClock = 7,
  taskbarStart = 8,
  taskbarApp = 9,
};

struct LayoutMatch {
  ContextFamily family = ContextFamily::fileItem;
  std::wstring namespaceId;
  std::wstring extension;  // with its dot
  std::wstring fileClass;
  std::wstring progId;
  SelectionArity selection = SelectionArity::any;
};

enum class NodeKind : uint32_t {
  command = 0,
  extensionSlot = 1,
  submenu = 2,
  separator = 3,
  classicExtensionSlot = 4,
  iconBand = 5,
  windowsExtensionSlot = 6,
  withheldSlots = 7,
  commandReference = 8,
  providerReference = 9,
  remainingCommands = 10,
};
inline constexpr uint32_t kHighestNodeKind = 10;

struct QuickBrowseSettings {
  std::wstring path;
  bool recursive = false;
};

struct QuickPinsSettings {
  std::wstring list = L"Pins";
  std::wstring path;
};

struct ModelNode {
  NodeKind kind = NodeKind::separator;
  std::wstring id;
  std::wstring commandId;    // command and command-reference nodes
  std::wstring providerRef;  // provider-reference nodes: "provider:<id>" or "command:<id>"
  // User commands ("user:" + braced GUID) only.
  std::wstring title;
  std::wstring executable;
  std::vector<std::wstring> arguments;
  std::wstring commandsPlusRef;

  std::wstring titleOverride;
  std::wstring titleVerb;
  std::wstring iconPath;
  std::wstring cachedIcon;  // user commands: the ".ico" extracted from icon_path, when cached
  bool shiftOnly = false;
  std::optional<double> order;  // author's sort key
  uint32_t rank = 0;            // fallback sort key written by flattening ("_rank")
  std::wstring from;            // "_from": the ancestor layout that declared an inherited row
  bool fromOverlay = false;     // inserted by the user's overlay
  std::optional<QuickBrowseSettings> quickBrowse;  // "product:quick-browse" only
  std::optional<QuickPinsSettings> quickPins;      // "product:quick-pins" only
  std::vector<ModelNode> items;                    // submenu, icon_band, withheld-slots
};

struct Layout {
  std::wstring id;
  std::optional<LayoutMatch> match;  // absent: "<no-context>"
  std::wstring inherits;
  bool isAbstract = false;
  std::vector<std::wstring> ancestors;  // "_ancestors", nearest first
  std::vector<ModelNode> items;         // root level of the layout's menu
};

enum class ExtensionActionKind : uint32_t { none = 0, hide = 1, move = 2 };

struct ExtensionRule {
  std::wstring id;  // after family expansion: "<id>.<family>" for multi-family rules
  bool fromOverlay = false;
  bool shiftOnly = false;
  std::wstring targetKey;  // "provider:<id>" or "command:<id>"
  std::optional<ContextFamily> family;
  std::wstring namespaceId;
  std::wstring extension;
  std::wstring fileClass;
  ExtensionActionKind action = ExtensionActionKind::none;
  std::wstring titleOverride;
  std::wstring targetSubmenuId;
  std::optional<double> order;
};

struct CommandDefinition {
  std::wstring commandId;  // a "user:" identity
  std::wstring title;
  std::wstring executable;
  std::vector<std::wstring> arguments;
  std::wstring iconPath;
  std::wstring cachedIcon;   // the ".ico" extracted from icon_path, when cached
  bool fromOverlay = false;  // declared by the user's overlay
};

struct CommandPolicy {
  std::wstring commandId;
  std::optional<LayoutMatch> scope;  // absent: "<global>"
  std::optional<bool> hidden;
  std::wstring titleOverride;
};

struct ModelDocument {
  DocumentKind kind = DocumentKind::baseline;
  uint32_t schemaVersion = 1;
  std::wstring baselineVersion;
  std::wstring baseId;  // menu style; empty in a baseline means "create-organize"
  std::vector<CommandDefinition> definitions;
  std::vector<Layout> layouts;
  std::vector<ExtensionRule> extensionRules;
  std::vector<CommandPolicy> policies;
};

}  // namespace cmr
