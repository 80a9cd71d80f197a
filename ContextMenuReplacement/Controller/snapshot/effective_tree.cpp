#include "snapshot/effective_tree.h"

#include <fmt/xchar.h>

#include "common/json_writer.h"
#include "common/text.h"
#include "model/model_names.h"

namespace cmr {
namespace {

// A valid model is at most nine levels deep and visits each row once; the walk stops at these
// bounds so that rows pointing back at their ancestors cannot make it run away.
constexpr uint32_t kMaxDepth = 32;

class TreeWalk {
 public:
  explicit TreeWalk(const CustomModelView& view) : view_(view), budget_(view.nodeCount()) {}

  std::wstring Text(uint32_t first, uint32_t count, uint32_t depth) {
    std::wstring text;
    if (depth > kMaxDepth) return text;
    const std::wstring indent(size_t{2} * (depth + 1), L' ');
    for (uint32_t i = 0; i < count && budget_ > 0; ++i) {
      --budget_;
      const NodeRow node = view_.Node(first + i);
      const std::wstring_view id = view_.Text(node.id);
      switch (static_cast<NodeKind>(node.kind)) {
        case NodeKind::separator: text += fmt::format(L"{}- (separator)\n", indent); break;
        case NodeKind::extensionSlot:
          text += fmt::format(L"{}- [{}] (modern extension slot)\n", indent, id);
          break;
        case NodeKind::classicExtensionSlot:
          text += fmt::format(L"{}- [{}] (classic extension slot)\n", indent, id);
          break;
        case NodeKind::windowsExtensionSlot:
          text += fmt::format(L"{}- [{}] (windows extension slot)\n", indent, id);
          break;
        case NodeKind::withheldSlots:
          text +=
              fmt::format(L"{}- [{}] (withheld - slots kept from a hidden subtree)\n", indent, id);
          break;
        case NodeKind::submenu:
          text += fmt::format(L"{}- [{}] {} >\n", indent, id, Title(node));
          break;
        default:
          text += fmt::format(L"{}- [{}] command {}\n", indent, id, view_.Text(node.identity));
          break;
      }
      text += Text(node.childFirst, node.childCount, depth + 1);
    }
    return text;
  }

  std::wstring Json(uint32_t first, uint32_t count, uint32_t depth) {
    std::wstring json = L"[";
    for (uint32_t i = 0; i < count && budget_ > 0 && depth <= kMaxDepth; ++i) {
      --budget_;
      const NodeRow node = view_.Node(first + i);
      if (i != 0) json += L',';
      json += L"{\"id\":" + JsonQuote(view_.Text(node.id)) + L",\"kind\":" +
              JsonQuote(FromUtf8(NodeKindName(static_cast<NodeKind>(node.kind))));
      if (node.identity.length != 0)
        json += L",\"command\":" + JsonQuote(view_.Text(node.identity));
      const auto kind = static_cast<NodeKind>(node.kind);
      if (kind == NodeKind::submenu) json += L",\"title\":" + JsonQuote(Title(node));
      if (kind == NodeKind::submenu || kind == NodeKind::iconBand ||
          kind == NodeKind::withheldSlots || node.childCount != 0) {
        json += L",\"items\":" + Json(node.childFirst, node.childCount, depth + 1);
      }
      json += L'}';
    }
    return json + L"]";
  }

 private:
  std::wstring_view Title(const NodeRow& node) const {
    if (node.titleOverride.length != 0) return view_.Text(node.titleOverride);
    if (node.titleVerb.length != 0) return view_.Text(node.titleVerb);
    return view_.Text(node.id);
  }

  const CustomModelView& view_;
  uint32_t budget_;
};

}  // namespace

bool ReadLayoutMatches(const CustomModelView& view, std::vector<LayoutMatchView>& matches) {
  matches.clear();
  if (!view.attached()) return false;
  matches.reserve(view.layoutCount());
  for (uint32_t i = 0; i < view.layoutCount(); ++i) {
    const LayoutRow row = view.Layout(i);
    if (row.family > 9 || row.selection > 3) {
      matches.clear();
      return false;
    }
    matches.push_back({row.family, view.Text(row.namespaceId), view.Text(row.extension),
                       view.Text(row.fileClass), row.selection});
  }
  return true;
}

std::wstring EffectiveTreeText(const CustomModelView& view, uint32_t layoutIndex) {
  const LayoutRow layout = view.Layout(layoutIndex);
  return TreeWalk(view).Text(layout.rootFirst, layout.rootCount, 0);
}

std::wstring EffectiveTreeJson(const CustomModelView& view, uint32_t layoutIndex) {
  const LayoutRow layout = view.Layout(layoutIndex);
  return TreeWalk(view).Json(layout.rootFirst, layout.rootCount, 0);
}

}  // namespace cmr
