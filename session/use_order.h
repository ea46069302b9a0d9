// The order of use as a file, for images: their builders set the times of files, and the order of
// use is kept in those.
//
// The file has a line "SECONDS NAME" for each entry, the one used longest ago first: its time of
// use since 1970, and the name of its content file. The times are even and all different, so that
// no file system with coarse times makes two of them alike. Until a session opens the cache they
// stand in for the times of the metadata files; the opening sets those and deletes the file.
//
// Where times cannot be set the opening writes the file anew, with a first line that names the file
// itself. From then on metadata files that are newer than it keep their own times: their entries
// were stored since.
#ifndef OX_SESSION_USE_ORDER_H_
#define OX_SESSION_USE_ORDER_H_

#include <string>

#include "session/survey.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// Writes the file, in place of an older one.
Error KeepUseOrder(const std::string& directory, const Survey& survey);

// Gives the entries in the file its times and sorts them anew. Does nothing where there is no such
// file, it cannot be read, or it is longer than one for these entries can be.
void ReadUseOrder(const std::string& directory, Survey* survey);

// Sets the files' times as surveyed, then deletes the file. Where times cannot be set the file
// stays, and is written anew where that can be done.
void SettleUseOrder(const std::string& directory, const Survey& survey);

}  // namespace ox::internal

#endif
