// Finding the two files of one commit while their owner may be changing the directory, without its
// lock.
//
// The owner replaces an entry in three renamings: the staged metadata becomes the commit file, the
// staged content becomes NAME, the commit file becomes NAME.ox_meta (commit_files.h). So
//
// - where a commit file is seen, the pair is the one that a recovery would put in place: the commit
//   file with the staged content or, once that is gone, with NAME, unless that is other content
//   (content_in_place.h);
// - where none is, or its content is lost, the pair is NAME with NAME.ox_meta. Both are opened,
//   then commit files are sought, then NAME.ox_meta must still lead to the file that was opened.
//   Content of a later commit comes into place only after its commit file is made, or after
//   NAME.ox_meta is deleted; so it was not NAME yet when it was opened, or one of the two is seen.
//
// The reader skips the commit file of KeepAs when its writer has written more since.
//
// A name that leads to another file now makes the reader begin again. Open files keep their inode
// numbers from being given to others.
#ifndef OX_SESSION_COMMITTED_PAIR_H_
#define OX_SESSION_COMMITTED_PAIR_H_

#include <string>

#include <oxfilecache/descriptor.h>
#include <oxfilecache/error.h>

namespace ox::internal {

// Open for reading, at their starts; regular files.
struct CommittedPair {
  UniqueFd content;
  UniqueFd metadata;
};

// Of the entry whose content file is `name` in `directory`. kNotFound when there is none; kInUse
// when its files were changed for seconds, each time they were looked at; kInputOutput when a file
// cannot be opened or is not a regular one.
Error OpenCommittedPair(const std::string& directory, const std::string& name, CommittedPair* pair);

}  // namespace ox::internal

#endif
