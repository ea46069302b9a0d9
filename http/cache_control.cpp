#include "http/cache_control.h"

#include <algorithm>
#include <limits>

namespace ox::internal::http {
namespace {

struct Directive {
  std::string name;                  // in small letters
  std::optional<std::string> value;  // without quotes
};

std::string Unquoted(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::string(text);
  std::string plain;
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    if (text[i] == '\\' && i + 2 < text.size()) ++i;
    plain += text[i];
  }
  return plain;
}

Directive ParseDirective(std::string_view member) {
  const std::size_t equals = member.find('=');
  if (equals == std::string_view::npos) return {Lower(member), std::nullopt};
  // A blank beside the sign is an error, after which the value counts as unreadable.
  const std::string_view name = Trimmed(member.substr(0, equals));
  const std::string_view value = member.substr(equals + 1);
  const bool hasBlank = name.size() != equals || Trimmed(value).size() != value.size();
  return {Lower(name), hasBlank ? std::string() : Unquoted(value)};
}

// What is unreadable or contradicts itself makes the answer stale, which is always safe.
void TakeMaxAge(const Directive& directive, std::optional<std::int64_t>* maxAge) {
  const std::int64_t value = ParseSeconds(directive.value.value_or("")).value_or(0);
  *maxAge = *maxAge && **maxAge != value ? 0 : value;
}

// Of several, or of one that cannot be read, the strictest.
void TakeSeconds(const Directive& directive, std::optional<std::int64_t>* seconds) {
  const std::int64_t value = ParseSeconds(directive.value.value_or("")).value_or(0);
  *seconds = *seconds ? std::min(**seconds, value) : value;
}

void TakeNoCache(const Directive& directive, CacheControl* control) {
  const std::string value = directive.value.value_or("");
  const std::vector<std::string_view> names = Members(value);
  if (names.empty()) control->noCache = true;
  control->unkeptNames.insert(control->unkeptNames.end(), names.begin(), names.end());
}

bool TakeFlag(const Directive& directive, CacheControl* control) {
  const auto& [name, value] = directive;
  if (name == "no-store") return control->noStore = true;
  if (name == "public") return control->isPublic = true;
  if (name == "private") return control->isPrivate = true;
  if (name == "must-revalidate") return control->mustRevalidate = true;
  if (name == "must-understand") return control->mustUnderstand = true;
  if (name == "only-if-cached") return control->onlyIfCached = true;
  if (name == "s-maxage") return control->hasSharedMaxAge = true;
  return false;
}

void Take(const Directive& directive, CacheControl* control) {
  const auto& [name, value] = directive;
  if (TakeFlag(directive, control)) return;
  if (name == "no-cache") TakeNoCache(directive, control);
  if (name == "max-age") TakeMaxAge(directive, &control->maxAge);
  if (name == "min-fresh") TakeSeconds(directive, &control->minFresh);
  if (name == "stale-while-revalidate") TakeSeconds(directive, &control->staleWhileRevalidate);
  if (name == "stale-if-error") TakeSeconds(directive, &control->staleIfError);
  if (name != "max-stale") return;
  if (value) return TakeSeconds(directive, &control->maxStale);
  control->maxStale = std::numeric_limits<std::int64_t>::max();
}

}  // namespace

CacheControl ParseCacheControl(const HeaderList& headers) {
  CacheControl control;
  const std::string value = Combined(headers, "Cache-Control");
  for (const std::string_view member : Members(value))
    Take(ParseDirective(member), &control);
  // What HTTP/1.0 had, where nothing newer stands beside it.
  if (value.empty() && SameName(Combined(headers, "Pragma"), "no-cache")) control.noCache = true;
  return control;
}

}  // namespace ox::internal::http
