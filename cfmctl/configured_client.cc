#include "configured_client.h"

#include "difference.h"
#include "failure.h"

namespace cfmctl {

ConfiguredClient::ConfiguredClient(const std::string& config_file, const ServerOptions& options)
    : configuration_(ParseFile(config_file, ReadFile(config_file))),
      wanted_(ForClient(configuration_.model, configuration_.ports)),
      session_(options),
      client_(session_.link().token()) {
  HandOver(wanted_);
  session_.link().on_lost = [this] {
    // Lost between the two steps: the client still wants the first.
    if (step_) HandOver(wanted_);
    step_.reset();
    in_step_ = false;
    replied_ = false;
    ++losses_;
    if (on_lost) on_lost();
  };
  session_.link().on_cache = [this](const Model& before) {
    step_ = StepBefore(before, wanted_);
    if (step_) HandOver(*step_);
    replied_ = true;
  };
}

void ConfiguredClient::HandOver(const Model& model) {
  client_.UpdateConfig(model.hierarchy);
  client_.UpdateConfigProbe(model.probes);
}

// Outside of the middleware's callbacks: the client has acted on the cache reply.
void ConfiguredClient::Settle() {
  if (!replied_) return;
  replied_ = false;
  if (step_) HandOver(wanted_);
  step_.reset();
  in_step_ = true;
}

void ConfiguredClient::Synchronise() {
  session_.WaitForServer();
  // Beside the time-out a millisecond for each object: a large configuration takes its time.
  const auto patience = options().timeout + std::chrono::milliseconds(SizeOf(model()).total());
  if (!Wait([this] { return in_step_; }, patience)) {
    throw Failure(kFailed, "the server is there but does not answer; a longer --timeout may help");
  }
}

bool ConfiguredClient::Wait(const std::function<bool()>& done, std::optional<std::chrono::milliseconds> patience) {
  return session_.Wait(
      [this, &done] {
        Settle();
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
