#include "snapshot/contract_fixture.h"

#include <fmt/xchar.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <array>
#include <map>
#include <string_view>

#include "common/data_paths.h"
#include "common/json_members.h"
#include "common/json_writer.h"
#include "common/text.h"
#include "model/command_identity.h"
#include "model/model_document.h"
#include "model/model_names.h"
#include "snapshot/custom_model_snapshot.h"
#include "snapshot/effective_tree.h"
#include "snapshot/file_classification.h"
#include "snapshot/overlay_pipeline.h"
#include "snapshot/target_matching.h"

namespace cmr {
namespace {

using rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;
using Texts = std::vector<std::wstring>;

std::wstring Compact(const Value& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return FromUtf8(std::string_view(buffer.GetString(), buffer.GetSize()));
}

std::wstring Text(const Value& object, const char* key) {
  return FromUtf8(JsonMemberText(object, key));
}

// An expected answer: a text, or an array of texts for a list answer.
Texts ExpectedTexts(const Value& value) {
  Texts texts;
  if (value.IsString()) texts.push_back(JsonWide(value));
  if (value.IsArray()) {
    for (const Value& item : value.GetArray())
      texts.push_back(item.IsString() ? JsonWide(item) : Compact(item));
  }
  return texts;
}

std::wstring Listed(const Texts& texts) {
  std::wstring list = L"[";
  for (const std::wstring& text : texts) list += (list.size() > 1 ? L", " : L"") + JsonQuote(text);
  return list + L"]";
}

// ---- Repeats -------------------------------------------------------------------------------

using Bindings = std::map<std::string, std::string>;

Value Expanded(const Value& value, const Bindings& bindings, Allocator& allocator) {
  if (value.IsString()) {
    std::string text(value.GetString(), value.GetStringLength());
    for (const auto& [name, replacement] : bindings) {
      const std::string token = "{" + name + "}";
      for (size_t at = text.find(token); at != std::string::npos; at = text.find(token, at)) {
        text.replace(at, token.size(), replacement);
        at += replacement.size();
      }
    }
    return Value(text.c_str(), static_cast<rapidjson::SizeType>(text.size()), allocator);
  }
  if (value.IsObject()) {
    Value copy(rapidjson::kObjectType);
    for (const auto& member : value.GetObject()) {
      copy.AddMember(Value(member.name, allocator), Expanded(member.value, bindings, allocator),
                     allocator);
    }
    return copy;
  }
  if (!value.IsArray()) return Value(value, allocator);
  Value copy(rapidjson::kArrayType);
  for (const Value& item : value.GetArray()) {
    const Value* count = JsonMember(item, "$repeat");
    const Value* each = JsonMember(item, "each");
    if (count == nullptr || !count->IsUint() || each == nullptr) {
      copy.PushBack(Expanded(item, bindings, allocator), allocator);
      continue;
    }
    Bindings inner = bindings;
    const std::string name(JsonMemberText(item, "as"));
    const Value* width = JsonMember(item, "width");
    const size_t digits = width != nullptr && width->IsUint() ? width->GetUint() : 0;
    for (unsigned i = 0; i < count->GetUint(); ++i) {
      std::string number = std::to_string(i);
      if (number.size() < digits) number.insert(0, digits - number.size(), '0');
      if (!name.empty()) inner[name] = number;
      copy.PushBack(Expanded(*each, inner, allocator), allocator);
    }
  }
  return copy;
}

// ---- Probes --------------------------------------------------------------------------------

Texts IdentityKindProbe(const Value& input) {
  static constexpr std::wstring_view kNames[] = {
      L"invalid", L"windows", L"com-canonical", L"com-catalog", L"product", L"user", L"ephemeral"};
  const std::wstring text = JsonWide(input);
  const auto kind = static_cast<uint32_t>(ClassifyIdentity(text));
  std::wstring answer(kind < std::size(kNames) ? kNames[kind] : L"?");
  if (IsProviderWideComIdentity(text))
    answer = kind == 0 ? L"provider-wide" : answer + L"+provider-wide";
  return {answer};
}

Texts IdentityOrderProbe(const Value& input) {
  Texts identities = ExpectedTexts(input);
  SortIdentities(identities);
  return identities;
}

Texts ReferenceKeyProbe(const Value& input) {
  return {MakeReferenceKey(input)};
}

Texts LegacyIdProbe(const Value& input) {
  return {NormaliseLegacyLayoutId(JsonWide(input))};
}

Texts HeaderProbe(const Value& input) {
  DocumentHeader header;
  if (Status status = ReadDocumentHeader(input, header); !status) return {status.message()};
  return {fmt::format(L"{} schema {} {} style {}",
                      header.kind == DocumentKind::baseline ? L"baseline" : L"overlay",
                      header.schemaVersion, header.versionDeclared ? L"declared" : L"assumed",
                      MenuStyleOf(header))};
}

std::wstring_view SelectionName(SelectionArity arity) {
  static constexpr std::wstring_view kNames[] = {L"any", L"none", L"single", L"multi"};
  const auto index = static_cast<uint32_t>(arity);
  return index < std::size(kNames) ? kNames[index] : L"?";
}

std::wstring MatchText(ContextFamily family, std::wstring_view namespaceId,
                       std::wstring_view extension, std::wstring_view fileClass,
                       SelectionArity selection) {
  std::wstring text = FromUtf8(ContextFamilyName(family));
  if (!namespaceId.empty()) text += fmt::format(L" namespace {}", namespaceId);
  if (!extension.empty()) text += fmt::format(L" extension {}", extension);
  if (!fileClass.empty()) text += fmt::format(L" class {}", fileClass);
  return text + fmt::format(L" selection {}", SelectionName(selection));
}

Texts TargetProbe(const Value& input) {
  MenuTarget target;
  if (Status status = ParseTarget(JsonWide(input), target); !status) return {status.message()};
  return {MatchText(target.family, target.namespaceId, target.extension, target.fileClass,
                    target.selection)};
}

// The target of a "match" probe or a document case: its text, then "class" if given.
Status ReadTarget(const Value& input, MenuTarget& target) {
  if (Status status = ParseTarget(Text(input, "target"), target); !status) return status;
  if (JsonMember(input, "class") != nullptr) target.fileClass = Text(input, "class");
  return Status::Ok();
}

MatchResult Scan(std::span<const LayoutMatchView> layouts, const MenuTarget& target,
                 const Value& input) {
  const Value* resolve = JsonMember(input, "resolve");
  const bool fallback = resolve != nullptr && resolve->IsBool() && resolve->GetBool();
  return fallback ? Resolve(layouts, target) : Match(layouts, target);
}

std::wstring MatchResultText(const MatchResult& result) {
  if (result.status == MatchStatus::ambiguous) return L"ambiguous";
  if (result.status != MatchStatus::matched) return L"none";
  return fmt::format(L"layout {} score {}", result.index, result.score);
}

Texts MatchProbe(const Value& input) {
  MenuTarget target;
  if (Status status = ReadTarget(input, target); !status) return {status.message()};
  std::vector<std::array<std::wstring, 3>> texts;
  std::vector<LayoutMatchView> layouts;
  const Value* rows = JsonMember(input, "layouts");
  if (rows == nullptr || !rows->IsArray()) return {L"the probe has no 'layouts' array"};
  texts.reserve(rows->Size());
  for (const Value& row : rows->GetArray()) {
    texts.push_back({Text(row, "namespace_id"), Text(row, "extension"), Text(row, "file_class")});
    layouts.push_back(
        {static_cast<uint32_t>(ParseContextFamily(JsonMemberText(row, "family"))), texts.back()[0],
         texts.back()[1], texts.back()[2],
         static_cast<uint32_t>(ParseSelectionArity(JsonMemberText(row, "selection")))});
  }
  return {MatchResultText(Scan(layouts, target, input))};
}

Texts FileClassProbe(const Value& input) {
  Texts asked;
  const auto lookup = [&](std::wstring_view name) {
    asked.emplace_back(name);
    const Value* registered = JsonMember(input, "registered");
    return registered == nullptr ? std::wstring() : Text(*registered, ToUtf8(name).c_str());
  };
  std::wstring answer = ClassifyFile(Text(input, "perceived"), Text(input, "mime"), lookup);
  for (size_t i = 0; i < asked.size(); ++i)
    answer += (i == 0 ? L" after reading " : L", ") + asked[i];
  return {answer};
}

Texts DraftIdProbe(const Value& input) {
  return {IsValidDraftId(JsonWide(input)) ? L"valid" : L"invalid"};
}

struct ProbeRow {
  std::string_view name;
  Texts (*probe)(const Value&);
};

constexpr ProbeRow kProbes[] = {
    {"identity", IdentityKindProbe},
    {"identity-order", IdentityOrderProbe},
    {"reference-key", ReferenceKeyProbe},
    {"legacy-id", LegacyIdProbe},
    {"header", HeaderProbe},
    {"target", TargetProbe},
    {"match", MatchProbe},
    {"file-class", FileClassProbe},
    {"draft-id", DraftIdProbe},
};

std::wstring CheckProbe(std::string_view name, const Value& pair) {
  if (!pair.IsArray() || pair.Size() != 2) return L"a probe case is not an [input, expected] pair";
  for (const ProbeRow& row : kProbes) {
    if (row.name != name) continue;
    const Texts actual = row.probe(pair[0]);
    const Texts expected = ExpectedTexts(pair[1]);
    if (actual == expected) return L"";
    return fmt::format(L"{} gave {}, expected {}", Compact(pair[0]), Listed(actual),
                       Listed(expected));
  }
  return fmt::format(L"unknown probe '{}'", FromUtf8(name));
}

// ---- Documents -----------------------------------------------------------------------------

std::wstring PolicyText(const CommandPolicy& policy) {
  std::wstring text = policy.commandId + L" ";
  text += policy.scope
              ? MatchText(policy.scope->family, policy.scope->namespaceId, policy.scope->extension,
                          policy.scope->fileClass, policy.scope->selection)
              : L"<global>";
  if (policy.hidden) text += *policy.hidden ? L" hidden" : L" shown";
  if (!policy.titleOverride.empty()) text += L" titled " + policy.titleOverride;
  return text;
}

std::wstring RuleText(const ExtensionRule& rule) {
  static constexpr std::wstring_view kActions[] = {L"none", L"hide", L"move"};
  const auto action = static_cast<uint32_t>(rule.action);
  std::wstring text =
      fmt::format(L"{} {} {} {}", rule.id,
                  rule.family ? FromUtf8(ContextFamilyName(*rule.family)) : std::wstring(L"<any>"),
                  rule.targetKey, action < std::size(kActions) ? kActions[action] : L"?");
  if (!rule.targetSubmenuId.empty()) text += L" to " + rule.targetSubmenuId;
  if (rule.fromOverlay) text += L" overlay";
  return text;
}

Texts Lines(std::wstring_view text) {
  Texts lines;
  for (size_t start = 0; start < text.size();) {
    size_t end = text.find(L'\n', start);
    if (end == std::wstring_view::npos) end = text.size();
    lines.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::wstring Compare(std::wstring_view what, const Texts& actual, const Value* expected) {
  if (expected == nullptr || actual == ExpectedTexts(*expected)) return L"";
  return fmt::format(L"{} are {}, expected {}", what, Listed(actual),
                     Listed(ExpectedTexts(*expected)));
}

std::wstring CheckTarget(const CustomModelView& view, const Value& expected) {
  MenuTarget target;
  if (Status status = ReadTarget(expected, target); !status) return status.message();
  std::vector<LayoutMatchView> layouts;
  if (!ReadLayoutMatches(view, layouts)) return L"the compiled layouts cannot be read";
  const MatchResult result = Scan(layouts, target, expected);
  const std::wstring where = Text(expected, "target");
  const Value* layout = JsonMember(expected, "layout");
  const std::wstring chosen = result.status == MatchStatus::matched
                                  ? std::wstring(view.Text(view.Layout(result.index).id))
                                  : MatchResultText(result);
  const std::wstring wanted =
      layout == nullptr || !layout->IsString() ? L"none" : JsonWide(*layout);
  if (chosen != wanted) {
    return fmt::format(L"target '{}' is served by {}, expected {}", where, chosen, wanted);
  }
  if (result.status != MatchStatus::matched) return L"";
  return Compare(fmt::format(L"the rows for '{}'", where),
                 Lines(EffectiveTreeText(view, result.index)), JsonMember(expected, "tree"));
}

Status LoadDocument(const Value& source, const ContractInputs& inputs, rapidjson::Document& out) {
  if (source.IsObject()) {
    out.CopyFrom(source, out.GetAllocator());
    return Status::Ok();
  }
  const std::wstring name = source.IsString() ? JsonWide(source) : L"";
  for (const auto& [file, document] : inputs.baselines) {
    if (file == name) {
      out.CopyFrom(*document, out.GetAllocator());
      return Status::Ok();
    }
  }
  return Failure(L"the fixture names the baseline '{}', which was not given", name);
}

std::wstring CheckDocuments(const Value& baselineSource, const Value* overlaySource,
                            const Value& expect, const ContractInputs& inputs) {
  rapidjson::Document merged, overlay;
  if (Status status = LoadDocument(baselineSource, inputs, merged); !status)
    return status.message();
  if (overlaySource != nullptr) {
    if (Status status = LoadDocument(*overlaySource, inputs, overlay); !status) {
      return status.message();
    }
  }
  ModelDocument model;
  bool restamped = false;
  const Status merge = MergeModelDocuments(*inputs.schema, merged,
                                           overlaySource ? &overlay : nullptr, model, restamped);
  const std::wstring refusal = Text(expect, "refusal");
  if (!merge || !refusal.empty()) {
    if (merge.message() == refusal) return L"";
    if (merge) return fmt::format(L"accepted, expected the refusal {}", JsonQuote(refusal));
    return fmt::format(L"refused with {}{}", JsonQuote(merge.message()),
                       refusal.empty() ? L"" : L", expected " + JsonQuote(refusal));
  }
  const std::string image = FlattenCustomModel(CompileCustomModel(model), 1);
  CustomModelView view;
  if (Status status = AttachCustomModel(image.data(), image.size(), view); !status) {
    return L"the compiled snapshot does not attach: " + status.message();
  }
  Texts layouts, definitions, policies, rules;
  for (uint32_t i = 0; i < view.layoutCount(); ++i)
    layouts.emplace_back(view.Text(view.Layout(i).id));
  for (uint32_t i = 0; i < view.definitionCount(); ++i) {
    definitions.emplace_back(view.Text(view.Definition(i).identity));
  }
  for (const CommandPolicy& policy : model.policies) policies.push_back(PolicyText(policy));
  for (const ExtensionRule& rule : model.extensionRules) rules.push_back(RuleText(rule));
  std::wstring why = Compare(L"the layouts", layouts, JsonMember(expect, "layouts"));
  if (why.empty())
    why = Compare(L"the definitions", definitions, JsonMember(expect, "definitions"));
  if (why.empty()) why = Compare(L"the policies", policies, JsonMember(expect, "policies"));
  if (why.empty()) why = Compare(L"the rules", rules, JsonMember(expect, "rules"));
  if (const Value* wanted = JsonMember(expect, "restamped"); why.empty() && wanted != nullptr) {
    if (!wanted->IsBool() || wanted->GetBool() != restamped) {
      why = restamped ? L"the overlay was re-stamped" : L"the overlay was not re-stamped";
    }
  }
  if (const Value* targets = JsonMember(expect, "targets");
      targets != nullptr && targets->IsArray()) {
    for (const Value& target : targets->GetArray()) {
      if (why.empty()) why = CheckTarget(view, target);
    }
  }
  return why;
}

// A case's own member, else the fixture's.
const Value* Inherited(const Value& item, const Value& fixture, const char* key) {
  const Value* own = JsonMember(item, key);
  return own != nullptr ? own : JsonMember(fixture, key);
}

std::wstring CheckCase(const Value& item, const Value& fixture, const ContractInputs& inputs) {
  if (const Value* probe = JsonMember(fixture, "probe"); probe != nullptr) {
    return CheckProbe(JsonMemberText(fixture, "probe"), item);
  }
  const Value* baseline = Inherited(item, fixture, "baseline");
  const Value* expect = Inherited(item, fixture, "expect");
  if (baseline == nullptr || expect == nullptr || !expect->IsObject()) {
    return L"the case has no 'baseline' or no 'expect' object";
  }
  return CheckDocuments(*baseline, Inherited(item, fixture, "overlay"), *expect, inputs);
}

}  // namespace

void ExpandRepeats(rapidjson::Document& fixture) {
  Value expanded = Expanded(fixture, {}, fixture.GetAllocator());
  static_cast<Value&>(fixture).Swap(expanded);
}

std::wstring CheckContractFixture(const Value& fixture, const ContractInputs& inputs) {
  const Value* cases = JsonMember(fixture, "cases");
  if (cases == nullptr) return CheckCase(fixture, fixture, inputs);
  if (!cases->IsArray() || cases->Empty()) return L"'cases' is not a non-empty array";
  for (rapidjson::SizeType i = 0; i < cases->Size(); ++i) {
    if (std::wstring why = CheckCase((*cases)[i], fixture, inputs); !why.empty()) {
      return fmt::format(L"case {}: {}", i + 1, why);
    }
  }
  return L"";
}

}  // namespace cmr
