// Asking whether a stored answer still holds, and what follows from the reply.
#ifndef OX_HTTP_VALIDATION_H_
#define OX_HTTP_VALIDATION_H_

#include <cstdint>
#include <string>

#include "http/stored_answer.h"

namespace ox::internal::http {

bool HasConditions(const HeaderList& request);
void RemoveConditions(HeaderList* request);

// Makes the request ask for the answer only if it has changed. False, and nothing done, when the
// answer has no validator; with `byTagAlone`, when it has no ETag.
bool AddConditions(const StoredAnswer& stored, bool byTagAlone, HeaderList* request);

// Whether the conditions of a request say that its sender has this answer already.
bool IsNotModified(const StoredAnswer& stored, const HeaderList& request);

// A validator that tells apart any two bodies, for If-Range; empty when there is none.
std::string StrongValidator(const StoredAnswer& stored);

// Takes over what a 304, or the answer to HEAD, says about the stored one.
void Freshen(const HeaderList& news, std::int64_t requestTime, std::int64_t responseTime,
             StoredAnswer* stored);

// Whether the answer to HEAD is about the stored one: the same validators and length.
bool IsSameRepresentation(const HeaderList& news, const StoredAnswer& stored);

}  // namespace ox::internal::http

#endif
