#include "cache/entry_node.h"

#include <oxfilecache/allocation.h>

namespace ox::core::cache {

NodePool::~NodePool() {
  FreeBlocks();
}

EntryNode* NodePool::Take() {
  if (free_ == nullptr && !AddBlock()) return nullptr;
  EntryNode* node = free_;
  free_ = node->older;
  ++used_;
  return node;
}

void NodePool::TakeBack(EntryNode* node) {
  node->value = nullptr;
  node->older = free_;
  free_ = node;
  --used_;
  if (used_ == 0) FreeBlocks();
}

EntryNode* NodePool::FindValue(const CacheValue* value) const {
  for (Block* block = blocks_; block != nullptr; block = block->next) {
    for (EntryNode& node : block->nodes) {
      if (node.value == value) return &node;
    }
  }
  return nullptr;
}

bool NodePool::AddBlock() {
  auto* block = NewObject<Block>();
  if (block == nullptr) return false;
  block->next = blocks_;
  blocks_ = block;
  // From the last to the first: the nodes are then taken in the order of their addresses.
  for (std::size_t i = kNodesInBlock; i > 0; --i) {
    EntryNode* node = &block->nodes[i - 1];
    node->value = nullptr;
    node->older = free_;
    free_ = node;
  }
  return true;
}

void NodePool::FreeBlocks() {
  while (blocks_ != nullptr) {
    Block* block = blocks_;
    blocks_ = block->next;
    DeleteObject(block);
  }
  free_ = nullptr;
}

}  // namespace ox::core::cache
