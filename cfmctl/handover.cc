#include "handover.h"

#include <utility>

#include "difference.h"

namespace cfmctl {

Handover::Handover(cfm::Client& client, Model wanted) : client_(client), wanted_(std::move(wanted)) {
  Give(wanted_);
}

void Handover::Replied(const Model& before) {
  step_ = StepBefore(before, wanted_);
  if (step_) Give(*step_);
  replied_ = true;
}

bool Handover::Settle() {
  if (!replied_) return false;
  replied_ = false;
  if (step_) Give(wanted_);
  step_.reset();
  in_step_ = true;
  return true;
}

void Handover::Lost() {
  // Lost between the two steps: the client still wants the first.
  if (step_) Give(wanted_);
  step_.reset();
  replied_ = false;
  in_step_ = false;
}

void Handover::Replace(Model wanted) {
  std::optional<Model> step;
  if (in_step_) step = StepBefore(wanted_, wanted);
  wanted_ = std::move(wanted);
  if (step) Give(*step);
  Give(wanted_);
}

void Handover::Give(const Model& model) {
  client_.UpdateConfig(model.hierarchy);
  client_.UpdateConfigProbe(model.probes);
}

}  // namespace cfmctl
