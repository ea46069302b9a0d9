// Header lines as a list, and what a cache asks of it.
#ifndef OX_HTTP_HEADER_LIST_H_
#define OX_HTTP_HEADER_LIST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <oxfilecache/http.h>

namespace ox::internal::http {

using ox::http::Header;
using HeaderList = std::vector<Header>;

// Without regard to the case of ASCII letters.
bool SameName(std::string_view a, std::string_view b);
std::string Lower(std::string_view text);
// Without blanks and tabs around it.
std::string_view Trimmed(std::string_view text);

// Whether the text is a name that a header may have.
bool IsToken(std::string_view text);
// Whether the text is a value that a header may have: no control characters but tabs.
bool IsFieldValue(std::string_view text);

// All digits, otherwise nothing. What exceeds the type is its largest value.
std::optional<std::int64_t> ParseSeconds(std::string_view text);

// Null when there is none.
const Header* Find(const HeaderList& headers, std::string_view name);
// Values of all lines of that name, joined with ", ".
std::string Combined(const HeaderList& headers, std::string_view name);
// The value when there is exactly one line of that name; it points into the list.
std::optional<std::string_view> Single(const HeaderList& headers, std::string_view name);
void Remove(HeaderList* headers, std::string_view name);
// Puts one line in the place of all lines of that name.
void Set(HeaderList* headers, std::string_view name, std::string value);

// The members of a list in a value. A comma in quotes does not part members.
std::vector<std::string_view> Members(std::string_view value);

// Removes what concerns the connection or a proxy, the lines that Connection names but for those
// that are about caching, and lines that cannot be.
void RemoveConnectionHeaders(HeaderList* headers);

}  // namespace ox::internal::http

#endif
