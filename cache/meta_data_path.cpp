#include "cache/meta_data_path.h"

#include "module/allocation.h"
#include "module/kernel_access.h"

namespace ox::core::cache {

MetaDataPath::MetaDataPath(const OxString& contentFile) : text_(nullptr) {
  const char* file = contentFile.UTF8();
  if (file[0] == '\0' && !contentFile.IsEmpty()) return;
  const std::size_t length = Kernel()->StrLen(file);
  const std::size_t bytes = length + sizeof kMetaDataSuffix;
  text_ = bytes <= sizeof inline_ ? inline_ : static_cast<char*>(AllocateBytes(bytes));
  if (text_ == nullptr) return;
  Kernel()->MemCopy(text_, file, length);
  Kernel()->MemCopy(text_ + length, kMetaDataSuffix, sizeof kMetaDataSuffix);
}

MetaDataPath::~MetaDataPath() {
  if (text_ != inline_) FreeBytes(text_);
}

}  // namespace ox::core::cache
