// What the seal of an entry takes of the disk beside the text of its metadata file: nothing where
// both fit together, else a block of its own. Where one was seen to fit, those that are no longer
// fit too; where one was not, neither do those that are no shorter. Only in between the disk has to
// be asked.
//
// Not locked: the session's mutex guards it.
#ifndef OX_SESSION_SEAL_BLOCKS_H_
#define OX_SESSION_SEAL_BLOCKS_H_

#include <cstddef>
#include <cstdint>
#include <optional>

namespace ox::internal {

struct SealedTexts {
  std::size_t urlBytes;
  std::size_t metadataBytes;

  bool AreWithin(const SealedTexts& other) const {
    return urlBytes <= other.urlBytes && metadataBytes <= other.metadataBytes;
  }
  std::uint64_t Weight() const { return std::uint64_t{urlBytes} * metadataBytes; }
};

class SealBlocks {
 public:
  // Bytes of that block, 0 where there is none; empty where it has to be asked for.
  std::optional<std::uint64_t> Of(const SealedTexts& texts) const {
    if (texts.urlBytes > kMostUrlBytes) return {};
    if (fitting_ && texts.AreWithin(*fitting_)) return 0;
    if (outside_ && outside_->AreWithin(texts)) return block_;
    return {};
  }
  // What was seen, on a disk with blocks of so many bytes. Kept is what tells most.
  void Note(const SealedTexts& texts, std::uint64_t seen, std::uint64_t block) {
    if (texts.urlBytes > kMostUrlBytes) return;
    block_ = block;
    if (seen == 0 && (!fitting_ || texts.Weight() > fitting_->Weight())) fitting_ = texts;
    if (seen == block && (!outside_ || texts.Weight() < outside_->Weight())) outside_ = texts;
  }

 private:
  // Of a longer one the seal may hold a digest, which is shorter.
  static constexpr std::size_t kMostUrlBytes = 512;

  std::optional<SealedTexts> fitting_;  // the longest that fit
  std::optional<SealedTexts> outside_;  // the shortest that did not
  std::uint64_t block_ = 0;
};

}  // namespace ox::internal

#endif
