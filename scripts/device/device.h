// What the program inside the device does. Every line that it prints goes out over the serial
// console in one call, so that lines of several processes do not mix and what was told outlives
// the power.
#ifndef OX_SCRIPTS_DEVICE_DEVICE_H_
#define OX_SCRIPTS_DEVICE_DEVICE_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <oxfilecache/session.h>

namespace ox::device {

using Arguments = std::vector<std::string>;

void Tell(const std::string& line);

// "none", "process" or "power"; anything else ends the program.
session::Durability DurabilityOf(const std::string& name);

// Ends the program with a message when it cannot be opened.
std::unique_ptr<session::CacheSession> OpenSession(const std::string& directory,
                                                   session::Durability durability);
void Configure(const std::string& directory, std::uint64_t bytes, int entries, int entryBytes);

std::int64_t Milliseconds();  // since the device was started

// The commands. Each gives the exit status.
int Check(const Arguments& arguments);  // NAME DIRECTORY DURABILITY URLS
int Load(const Arguments& arguments);   // NAME DIRECTORY DURABILITY URLS BASE
// STORE DIRECTORY OPERATION ENTRIES BYTES ROUND COUNTERS: put, renew, look, hit, miss or restart;
// the command COUNTERS is run before and after.
int Wear(const Arguments& arguments);
int Memory(const Arguments& arguments);  // DIRECTORY ENTRIES WHAT: module or session

}  // namespace ox::device

#endif
