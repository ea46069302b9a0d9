#include "cache/entry_node.h"

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

void NodePool::Give(EntryNode* node) {
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

// Without a way out of the loop, so that the compiler can compare many at once.
bool NodePool::HasTag(const Block& block, std::uint32_t tag) {
  std::uint32_t found = 0;
  for (const std::uint32_t other : block.tags)
    found |= other == tag ? 1U : 0U;
  return found != 0;
}

bool NodePool::AddBlock() {
  auto* block = NewObject<Block>();
  if (block == nullptr) return false;
  block->next = blocks_;
  blocks_ = block;
  // From the last to the first, so that they are taken in the order of their addresses.
  for (std::size_t i = kNodesInBlock; i > 0; --i) {
    EntryNode* node = &block->nodes[i - 1];
    node->value = nullptr;
    node->older = free_;
    node->tag = &block->tags[i - 1];
    *node->tag = 0;
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
