// Path of the metadata file that belongs to a content file, in UTF-8.
#ifndef OX_CACHE_META_DATA_PATH_H_
#define OX_CACHE_META_DATA_PATH_H_

#include <cstddef>

#include "string/ox_string.h"

namespace ox::core::cache {

constexpr char kMetaDataSuffix[] = ".ox_meta";
constexpr std::size_t kMetaDataSuffixLength = sizeof kMetaDataSuffix - 1;

class MetaDataPath {
 public:
  explicit MetaDataPath(const OxString& contentFile);
  ~MetaDataPath();
  MetaDataPath(const MetaDataPath&) = delete;
  MetaDataPath& operator=(const MetaDataPath&) = delete;

  // Null when memory ran out. There is no shortened path: without the suffix it would name the
  // content file.
  const char* Text() const { return text_; }

 private:
  // Longer than the paths of most devices, so that deleting an entry's files and reading its
  // metadata need no memory there.
  static constexpr std::size_t kInlineBytes = 256;

  char* text_;
  char inline_[kInlineBytes];
};

}  // namespace ox::core::cache

#endif
