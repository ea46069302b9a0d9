// A load that the power may cut at any moment, and the look at what is left of it.
//
//   NAME b URL VERSION    a commit or renewal begins
//   NAME d URL VERSION    it is done
//   NAME r URL            a removal begins
//   NAME f URL VERSION    found at a check; while loading, an entry that is not as it should be
//   NAME hit TIME         of the first entry that a check found, since the device was started
//   NAME ! ...            a call failed
#include <unistd.h>

#include <random>

#include "scripts/device/device.h"
#include "scripts/device/entry_texts.h"

namespace ox::device {
namespace {

class Loading {
 public:
  Loading(std::string name, session::CacheSession& session, int urls, int base)
      : name_(std::move(name)),
        session_(session),
        urls_(urls),
        version_(base),
        random_(static_cast<unsigned>(base)) {}

  void Step() {
    const unsigned choice = Pick(100);
    const int url = static_cast<int>(Pick(static_cast<unsigned>(urls_)));
    if (choice < 60) {
      Store(url);
    } else if (choice < 75) {
      Renew(url);
    } else if (choice < 95) {
      Fetch(url);
    } else if (choice < 99) {
      Remove(url);
    } else {
      Report(session_.Trim(nullptr));
    }
  }

 private:
  unsigned Pick(unsigned below) { return static_cast<unsigned>(random_() % below); }

  void Store(int url) {
    const int version = ++version_ * kRenewals;
    const std::string content = ContentOf(url, version);
    Error error;
    const auto writer = session_.Store(UrlOf(url), &error);
    if (Report(error) || Report(writer->Write(content.data(), content.size()))) return;
    Tell(name_ + " b " + Words(url, version));
    if (!Report(writer->Commit(MetadataOf(url, version))))
      Tell(name_ + " d " + Words(url, version));
  }

  void Renew(int url) {
    const int version = Fetch(url) + 1;
    if (version <= 1 || version % kRenewals == 0) return;
    Tell(name_ + " b " + Words(url, version));
    if (!Report(session_.SetMetadata(UrlOf(url), MetadataOf(url, version))))
      Tell(name_ + " d " + Words(url, version));
  }

  int Fetch(int url) {
    std::string message;
    const int version = FetchVersion(session_, url, &message);
    if (version < 0) Tell(name_ + " f " + Words(url, version) + " " + message);
    return version;
  }

  void Remove(int url) {
    Tell(name_ + " r " + std::to_string(url));
    const Error error = session_.Remove(UrlOf(url));
    if (error.kind != ErrorKind::kNotFound) Report(error);
  }

  static std::string Words(int url, int version) {
    return std::to_string(url) + " " + std::to_string(version);
  }

  bool Report(const Error& error) {
    if (!error) return false;
    Tell(name_ + " ! " + error.Message());
    usleep(50000);  // a disk that refuses everything would fill the console
    return true;
  }

  const std::string name_;
  session::CacheSession& session_;
  const int urls_;
  int version_;
  std::mt19937 random_;
};

}  // namespace

int Check(const Arguments& arguments) {
  const std::string& name = arguments.at(0);
  const int urls = std::stoi(arguments.at(3));
  const auto session = OpenSession(arguments.at(1), DurabilityOf(arguments.at(2)));
  std::int64_t firstHit = 0;
  for (int url = 0; url < urls; ++url) {
    std::string message;
    const int version = FetchVersion(*session, url, &message);
    if (version > 0 && firstHit == 0) firstHit = Milliseconds();
    Tell(name + " f " + std::to_string(url) + " " + std::to_string(version) + " " + message);
  }
  Tell(name + " hit " + std::to_string(firstHit));
  return 0;
}

int Load(const Arguments& arguments) {
  const auto session = OpenSession(arguments.at(1), DurabilityOf(arguments.at(2)));
  Loading loading(arguments.at(0), *session, std::stoi(arguments.at(3)),
                  std::stoi(arguments.at(4)));
  Tell(arguments.at(0) + " loading");
  for (;;)
    loading.Step();
}

}  // namespace ox::device
