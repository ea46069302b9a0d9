// The listed nodes as a tree by the tags of their paths.
//
// A search looks at about as many nodes as the logarithm of their number, where one along the list
// would look at all of them: a start, which looks for each entry that it finds, would then take a
// time that grows with the square of their number. The links lie in the nodes, so that nothing here
// needs memory and nothing can fail.
#ifndef OX_CACHE_ENTRY_TREE_H_
#define OX_CACHE_ENTRY_TREE_H_

#include <cstddef>
#include <cstdint>

#include "cache/entry_node.h"

namespace ox::core::cache {

// Folds the end of a path, where content files differ. Equal paths have equal tags.
std::uint32_t PathTag(const char* path, std::size_t length);

// At each node the next bit of the tag, from the highest on, decides between the two trees below.
// Nodes of one tag stand below each other. Not locked.
class EntryTree {
 public:
  // The node must have its tag.
  void Enter(EntryNode* node);
  void Leave(EntryNode* node);

  // The node whose value has the tag and for which isMeant(value) holds, null when there is none.
  template <typename IsMeant>
  EntryNode* Find(std::uint32_t tag, IsMeant isMeant) const {
    std::uint32_t bits = tag;
    for (EntryNode* node = root_; node != nullptr; node = node->below[NextBit(&bits)]) {
      if (node->tag == tag && isMeant(*node->value)) return node;
    }
    return nullptr;
  }

 private:
  static std::size_t NextBit(std::uint32_t* bits) {
    const std::size_t bit = *bits >> 31;
    *bits <<= 1;
    return bit;
  }
  // Where the node hangs; for null, where a node of that tag is to hang.
  EntryNode** PlaceOf(const EntryNode* node, std::uint32_t tag);

  EntryNode* root_ = nullptr;
};

}  // namespace ox::core::cache

#endif
