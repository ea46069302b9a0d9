#include "http/vary.h"

#include <algorithm>
#include <array>

namespace ox::internal::http {
namespace {

// Headers with lists in which neither order nor case has a meaning.
bool IsUnorderedList(std::string_view name) {
  constexpr std::array<std::string_view, 4> kNames = {"Accept", "Accept-Charset", "Accept-Encoding",
                                                      "Accept-Language"};
  return std::any_of(kNames.begin(), kNames.end(),
                     [name](std::string_view one) { return SameName(one, name); });
}

// One line for all lines of that name, without blanks that have no meaning.
std::string Normalised(const HeaderList& request, std::string_view name) {
  std::string value = Combined(request, name);
  const bool isUnordered = IsUnorderedList(name);
  if (isUnordered) value = Lower(value);
  std::vector<std::string_view> members = Members(value);
  if (isUnordered) std::sort(members.begin(), members.end());
  std::string text;
  for (const std::string_view member : members) {
    if (!text.empty()) text += ',';
    text += member;
  }
  return text;
}

template <typename Visit>
bool AnyVaryName(const HeaderList& answer, Visit visit) {
  const std::string vary = Combined(answer, "Vary");
  const auto names = Members(vary);
  return std::any_of(names.begin(), names.end(), visit);
}

}  // namespace

HeaderList VariedHeaders(const HeaderList& answer, const HeaderList& request) {
  HeaderList varied;
  AnyVaryName(answer, [&](std::string_view name) {
    if (Find(request, name) != nullptr && IsToken(name)) {
      Set(&varied, name, Normalised(request, name));
    }
    return false;
  });
  return varied;
}

bool MatchesVary(const StoredAnswer& answer, const HeaderList& request) {
  return !AnyVaryName(answer.headers, [&](std::string_view name) {
    if (name == "*") return true;
    const Header* then = Find(answer.varied, name);
    const bool isSent = Find(request, name) != nullptr;
    if (then == nullptr) return isSent;
    return !isSent || then->value != Normalised(request, name);
  });
}

bool VariesBySecret(const HeaderList& answer, const HeaderList& request) {
  return AnyVaryName(answer, [&](std::string_view name) {
    const bool isSecret = SameName(name, "Authorization") || SameName(name, "Cookie") ||
                          SameName(name, "Proxy-Authorization");
    return isSecret && Find(request, name) != nullptr;
  });
}

}  // namespace ox::internal::http
