#include "cache/joined_path.h"

#include <oxfilecache/allocation.h>
#include <oxfilecache/kernel.h>

namespace ox::core::cache {

JoinedPath::JoinedPath(const OxString& first, const char* second) : text_(nullptr), length_(0) {
  const char* head = first.UTF8();
  // Without memory for its UTF-8 form the text only seems to be empty.
  if (head[0] == '\0' && !first.IsEmpty() && first.Text()[0] != 0) return;
  IOxKernel* kernel = Kernel();
  const std::size_t headLength = kernel->StrLen(head);
  const std::size_t tailLength = kernel->StrLen(second);
  const std::size_t bytes = headLength + tailLength + 1;
  text_ = bytes <= sizeof inline_ ? inline_ : static_cast<char*>(AllocateBytes(bytes));
  if (text_ == nullptr) return;
  kernel->MemCopy(text_, head, headLength);
  kernel->MemCopy(text_ + headLength, second, tailLength + 1);
  length_ = headLength + tailLength;
}

JoinedPath::~JoinedPath() {
  if (text_ != inline_) FreeBytes(text_);
}

}  // namespace ox::core::cache
