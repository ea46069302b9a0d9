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
  CacheValueImpl* value;
  EntryNode* newer;   // towards the head, null there
  EntryNode* older;   // towards the tail, null there
  std::uint32_t tag;  // PathTag of the value's path
};

// Folds the end of a path, where content files differ. Equal paths have equal tags.
std::uint32_t PathTag(const char* path, std::size_t length);

// Nodes by the block, so that a walk over many of them stays within few lines of the processor's
// cache. Memory goes back when no node is in use. Not locked.
class NodePool {
 public:
  NodePool() = default;
  ~NodePool();
  NodePool(const NodePool&) = delete;
  NodePool& operator=(const NodePool&) = delete;

  // Null when memory ran out.
  EntryNode* Take();
  void Give(EntryNode* node);

 private:
  static constexpr std::size_t kNodesInBlock = 64;
  struct Block {
    // Leaves the nodes as they are: clearing them would call into the C library on small builds.
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
