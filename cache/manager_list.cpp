// The list of entries. Every search is a walk from the head: the entry limit keeps the list short,
// and the file path is the key, compared by the kernel byte for byte. The tag only spares the walk
// the entries that cannot be meant.
#include "cache/file_cache_manager_impl.h"
#include "module/allocation.h"

namespace ox::core::cache {

std::uint32_t PathTag(const char* path, std::size_t length) {
  constexpr std::size_t kFolded = 8;
  std::uint32_t tag = 0;
  for (std::size_t i = length > kFolded ? length - kFolded : 0; i < length; ++i) {
    tag = tag * 31 + static_cast<unsigned char>(path[i]);
  }
  return tag;
}

EntryNode* FileCacheManagerImpl::FindByPath(const char* path, std::uint32_t tag) {
  EntryNode* node = head;
  while (node != nullptr &&
         (node->tag != tag || kernel->StrCmp(node->value->FileUTF8(), path) != 0)) {
    node = node->older;
  }
  return node;
}

EntryNode* FileCacheManagerImpl::FindByValue(const CacheValue* value) {
  EntryNode* node = head;
  while (node != nullptr && node->value != value)
    node = node->older;
  return node;
}

void FileCacheManagerImpl::LinkAtHead(EntryNode* node) {
  node->newer = nullptr;
  node->older = head;
  if (head != nullptr) head->newer = node;
  head = node;
  if (tail == nullptr) tail = node;
  ++entryCount;
}

void FileCacheManagerImpl::Unlink(EntryNode* node) {
  (node->newer != nullptr ? node->newer->older : head) = node->older;
  (node->older != nullptr ? node->older->newer : tail) = node->newer;
  --entryCount;
}

bool FileCacheManagerImpl::RemoveNodeOf(const CacheValue* value) {
  EntryNode* node = FindByValue(value);
  if (node == nullptr) return false;
  Unlink(node);
  DeleteObject(node);
  return true;
}

}  // namespace ox::core::cache
