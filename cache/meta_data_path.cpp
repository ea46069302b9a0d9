#include "cache/meta_data_path.h"

#include "module/allocation.h"
#include "module/kernel_access.h"

namespace ox::core::cache {

MetaDataPath::MetaDataPath(const OxString& contentFile) : text_(nullptr) {
  const AllocationWatch watch;
  const char* file = contentFile.UTF8();
  if (watch.Tripped()) return;
  const std::size_t length = Kernel()->StrLen(file);
  text_ = static_cast<char*>(AllocateBytes(length + sizeof kMetaDataSuffix));
  if (text_ == nullptr) return;
  Kernel()->MemCopy(text_, file, length);
  Kernel()->MemCopy(text_ + length, kMetaDataSuffix, sizeof kMetaDataSuffix);
}

MetaDataPath::~MetaDataPath() {
  FreeBytes(text_);
}

}  // namespace ox::core::cache
