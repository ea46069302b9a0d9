// The list of entries. Every search is a walk from the head: the entry limit keeps the list short,
// and the file path is the key, compared by the kernel byte for byte.
#include "cache/file_cache_manager_impl.h"
#include "module/allocation.h"

namespace ox::core::cache {

EntryNode* FileCacheManagerImpl::FindByPath(const char* path) {
  EntryNode* node = head;
  while (node != nullptr && kernel->StrCmp(node->value->FileUTF8(), path) != 0)
    node = node->older;
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
