#include "cache/entry_node.h"

#include <oxfilecache/allocation.h>

namespace ox::core::cache {
namespace {

// Four tags in one vector; the compiler replaces it where the processor has none. A block begins 8
// bytes behind what the kernel aligned, so only the alignment of one tag can be relied on.
using FourTags = std::uint32_t __attribute__((vector_size(16), aligned(4), may_alias));

}  // namespace

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

// Compares four tags at once. Builds for size leave loops as they are written, so this is not left
// to the compiler.
bool NodePool::HasTag(const Block& block, std::uint32_t tag) {
  const FourTags wanted = {tag, tag, tag, tag};
  FourTags found = {0, 0, 0, 0};
  for (std::size_t i = 0; i < kNodesInBlock; i += 4) {
    found |=
        reinterpret_cast<FourTags>(*reinterpret_cast<const FourTags*>(&block.tags[i]) == wanted);
  }
  return (found[0] | found[1] | found[2] | found[3]) != 0;
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
