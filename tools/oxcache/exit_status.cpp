#include "tools/oxcache/exit_status.h"

namespace ox::tools {

ExitStatus StatusOf(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::kNone:
      return ExitStatus::kDone;
    case ErrorKind::kNotFound:
    case ErrorKind::kRefused:
    case ErrorKind::kConfiguration:
    case ErrorKind::kInUse:
    case ErrorKind::kDamaged:
      return ExitStatus::kNotDone;
    case ErrorKind::kInvalidArgument:
      return ExitStatus::kUsage;
    case ErrorKind::kModule:
    case ErrorKind::kInputOutput:
    case ErrorKind::kOutOfMemory:
    case ErrorKind::kProducer:
    case ErrorKind::kCancelled:
      break;
  }
  return ExitStatus::kInputOutput;
}

}  // namespace ox::tools
