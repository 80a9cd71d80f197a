#include "common/string_pool.h"

namespace cmr {

StringRef StringPool::Intern(std::wstring_view text) {
  const auto length = static_cast<uint32_t>(text.size());
  if (const auto found = offsets_.find(text); found != offsets_.end()) {
    return {found->second, length};
  }
  const auto offset = static_cast<uint32_t>(units_.size());
  offsets_.emplace(std::wstring(text), offset);
  units_.insert(units_.end(), text.begin(), text.end());
  units_.push_back(u'\0');
  return {offset, length};
}

}  // namespace cmr
