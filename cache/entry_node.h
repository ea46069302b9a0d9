// The nodes of the entry list, and where they come from.
#ifndef OX_CACHE_ENTRY_NODE_H_
#define OX_CACHE_ENTRY_NODE_H_

#include <cstddef>
#include <cstdint>

#include "cache/cache_value_impl.h"

namespace ox::core::cache {

// One place in the list of entries, which runs from the most recently admitted or found (head) to
// the least recently admitted or found (tail).
struct EntryNode {
  CacheValueImpl* value;  // null while the node is not listed
  EntryNode* newer;       // towards the head, null there
  EntryNode* older;       // towards the tail, null there
  EntryNode* below[2];    // in the tree of tags
  std::uint32_t tag;      // PathTag of the value's path
};

// Nodes are kept in blocks, so that they lie close together. The blocks are freed when no node is
// in use. Not locked.
class NodePool {
 public:
  NodePool() = default;
  ~NodePool();
  NodePool(const NodePool&) = delete;
  NodePool& operator=(const NodePool&) = delete;

  // A node without a value; null when memory ran out.
  EntryNode* Take();
  void TakeBack(EntryNode* node);

  // Looks at one node after the other.
  EntryNode* FindValue(const CacheValue* value) const;

 private:
  static constexpr std::size_t kNodesInBlock = 64;
  struct Block {
    // Leaves the fields as they are: clearing them would call into the C library on small builds.
    Block() {}  // NOLINT(modernize-use-equals-default)
    Block* next;
    EntryNode nodes[kNodesInBlock];
  };

  bool AddBlock();
  void FreeBlocks();

  Block* blocks_ = nullptr;
  EntryNode* free_ = nullptr;  // linked by `older`
  std::uint32_t used_ = 0;
};

}  // namespace ox::core::cache

#endif
