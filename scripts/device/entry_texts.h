// Entries that tell where they come from: content and metadata are made from the number of the URL
// and a version, so whatever a cache serves can be judged without a record inside the device.
#ifndef OX_SCRIPTS_DEVICE_ENTRY_TEXTS_H_
#define OX_SCRIPTS_DEVICE_ENTRY_TEXTS_H_

#include <string>

#include <oxfilecache/session.h>

namespace ox::device {

// What a fetch gives instead of a version.
constexpr int kAbsent = 0;
constexpr int kHalf = -1;        // bytes that no version of this URL has
constexpr int kMixed = -2;       // content of one version, metadata of another
constexpr int kUnreadable = -3;  // refused with an error

// A version that is stored is a multiple of this; each renewal of its metadata adds one.
constexpr int kRenewals = 8;
constexpr int StoredVersionOf(int version) {
  return version - version % kRenewals;
}

std::string UrlOf(int number);
std::string ContentOf(int number, int version);
std::string MetadataOf(int number, int version);

// The version that a fetch gives, or one of the above. The message is of kUnreadable.
int FetchVersion(session::CacheSession& session, int number, std::string* message);

}  // namespace ox::device

#endif
