#include "cache/entry_tree.h"

namespace ox::core::cache {

std::uint32_t PathTag(const char* path, std::size_t length) {
  constexpr std::size_t kFolded = 8;
  std::uint32_t tag = 0;
  for (std::size_t i = length > kFolded ? length - kFolded : 0; i < length; ++i) {
    tag = tag * 31 + static_cast<unsigned char>(path[i]);
  }
  // Into the high bits, which are looked at first.
  return tag * 0x9E3779B1U;
}

EntryNode** EntryTree::PlaceOf(const EntryNode* node, std::uint32_t tag) {
  EntryNode** place = &root_;
  while (*place != node)
    place = &(*place)->below[NextBit(&tag)];
  return place;
}

void EntryTree::Enter(EntryNode* node) {
  node->below[0] = nullptr;
  node->below[1] = nullptr;
  *PlaceOf(nullptr, node->tag) = node;
}

// Any node below shares the bits that lead here, so one that has none below itself takes the place.
void EntryTree::Leave(EntryNode* node) {
  EntryNode** place = PlaceOf(node, node->tag);
  EntryNode** last = place;
  EntryNode* heir = node;
  for (;;) {
    EntryNode** next = &heir->below[heir->below[0] != nullptr ? 0 : 1];
    if (*next == nullptr) break;
    last = next;
    heir = *next;
  }
  *last = nullptr;
  if (heir == node) return;
  heir->below[0] = node->below[0];
  heir->below[1] = node->below[1];
  *place = heir;
}

}  // namespace ox::core::cache
