#include "configured_client.h"

#include "failure.h"

namespace cfmctl {

ConfiguredClient::ConfiguredClient(const std::string& config_file, const ServerOptions& options)
    : configuration_(ParseFile(config_file, ReadFile(config_file))),
      session_(options),
      client_(session_.link().token()),
      handover_(client_, ForClient(configuration_.model, configuration_.ports)) {
  session_.link().on_lost = [this] {
    handover_.Lost();
    ++losses_;
    if (on_lost) on_lost();
  };
  session_.link().on_cache = [this](const Model& before) { handover_.Replied(before); };
}

void ConfiguredClient::Synchronise() {
  session_.WaitForServer();
  // Beside the time-out a millisecond for each object: a large configuration takes its time.
  const auto patience = options().timeout + std::chrono::milliseconds(SizeOf(model()).total());
  if (!Wait([this] { return handover_.in_step(); }, patience)) {
    throw Failure(kFailed, "the server is there but does not answer; a longer --timeout may help");
  }
}

bool ConfiguredClient::Wait(const std::function<bool()>& done, std::optional<std::chrono::milliseconds> patience) {
  return session_.Wait(
      [this, &done] {
        handover_.Settle();
        return done();
      },
      patience);
}

bool ConfiguredClient::WaitWithServer(const std::function<bool()>& done, std::chrono::milliseconds patience) {
  const int losses_before = losses_;
  bool reached = false;
  Wait(
      [&] {
        reached = done();
        return reached || losses_ != losses_before;
      },
      patience);
  if (!reached && losses_ != losses_before) throw Failure(kFailed, "the server went away in the middle of it");
  return reached;
}

}  // namespace cfmctl
