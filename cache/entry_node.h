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
  std::uint32_t* tag;     // PathTag of the value's path
};

// Folds the end of a path, where content files differ. Equal paths have equal tags.
std::uint32_t PathTag(const char* path, std::size_t length);

// Nodes are kept in blocks so that a search touches little memory: the tags of a block lie
// together, and a search by path reads only tags until one is equal. The blocks are freed when no
// node is in use. Not locked.
class NodePool {
 public:
  NodePool() = default;
  ~NodePool();
  NodePool(const NodePool&) = delete;
  NodePool& operator=(const NodePool&) = delete;

  // A node without a value; null when memory ran out.
  EntryNode* Take();
  void Give(EntryNode* node);

  // The node whose value has the tag and for which isMeant(value) holds, null when there is none.
  template <typename IsMeant>
  EntryNode* FindTagged(std::uint32_t tag, IsMeant isMeant) const {
    for (Block* block = blocks_; block != nullptr; block = block->next) {
      if (!HasTag(*block, tag)) continue;
      for (EntryNode& node : block->nodes) {
        if (*node.tag == tag && node.value != nullptr && isMeant(*node.value)) return &node;
      }
    }
    return nullptr;
  }
  EntryNode* FindValue(const CacheValue* value) const;

 private:
  static constexpr std::size_t kNodesInBlock = 64;
  static_assert(kNodesInBlock % 4 == 0, "tags are compared four at once");
  struct Block {
    // Leaves the fields as they are: clearing them would call into the C library on small builds.
    Block() {}  // NOLINT(modernize-use-equals-default)
    Block* next;
    std::uint32_t tags[kNodesInBlock];
    EntryNode nodes[kNodesInBlock];
  };

  static bool HasTag(const Block& block, std::uint32_t tag);
  bool AddBlock();
  void FreeBlocks();

  Block* blocks_ = nullptr;
  EntryNode* free_ = nullptr;  // linked by `older`
  std::uint32_t used_ = 0;
};

}  // namespace ox::core::cache

#endif
