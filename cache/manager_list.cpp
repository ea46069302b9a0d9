// The list of entries. Every search is a walk: the entry limit keeps the list short, and the file
// path is the key, compared by the kernel byte for byte. The tag only spares the walk the entries
// that cannot be meant.
#include "cache/file_cache_manager_impl.h"

namespace ox::core::cache {

// The first node that fits, walking from both ends at once: a step waits for the memory of the node
// before it, and two chains wait together.
template <typename Fits>
static EntryNode* FindNode(EntryNode* head, EntryNode* tail, std::uint32_t count, Fits fits) {
  EntryNode* fromHead = head;
  EntryNode* fromTail = tail;
  for (std::uint32_t left = count / 2 + count % 2; left > 0; --left) {
    if (fits(*fromHead)) return fromHead;
    if (fits(*fromTail)) return fromTail;
    fromHead = fromHead->older;
    fromTail = fromTail->newer;
  }
  return nullptr;
}

EntryNode* FileCacheManagerImpl::FindByPath(const char* path, std::uint32_t tag) {
  return FindNode(head, tail, entryCount, [&](const EntryNode& node) {
    return node.tag == tag && kernel->StrCmp(node.value->FileUTF8(), path) == 0;
  });
}

EntryNode* FileCacheManagerImpl::FindByValue(const CacheValue* value) {
  return FindNode(head, tail, entryCount,
                  [=](const EntryNode& node) { return node.value == value; });
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
  nodes_.Give(node);
  return true;
}

}  // namespace ox::core::cache
