// The list of entries. The file path is the key, compared by the kernel byte for byte; the tag only
// tells which entries need no comparison. The search takes the nodes as their tree has them and not
// in the order of the list. That changes no result: a path that is found in the list is never
// listed again, so only one node can match.
#include "cache/file_cache_manager_impl.h"

namespace ox::core::cache {

EntryNode* FileCacheManagerImpl::FindByPath(const char* path, std::uint32_t tag) {
  bool isUnequalToItself = false;
  EntryNode* found = tree_.Find(tag, [&](const CacheValueImpl& value) {
    const bool isMeant = kernel->StrCmp(value.FileUTF8(), path) == 0;
    if (!isMeant && value.FileUTF8() == path) isUnequalToItself = true;
    return isMeant;
  });
  if (isUnequalToItself) mayListTwice_ = true;
  return found;
}

EntryNode* FileCacheManagerImpl::FindByValue(const CacheValue* value) {
  // What is evicted stands at the tail, what was just found at the head.
  if (tail != nullptr && tail->value == value) return tail;
  if (head != nullptr && head->value == value) return head;
  return nodes_.FindValue(value);
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
  tree_.Leave(node);
  nodes_.TakeBack(node);
  return true;
}

}  // namespace ox::core::cache
