// How a client comes by its configuration: in one step, or in two where the server has to give something up before it
// gets it back (StepBefore).
#ifndef CFMCTL_HANDOVER_H
#define CFMCTL_HANDOVER_H

#include <optional>

#include "cfm/client.h"
#include "model.h"

namespace cfmctl {

class Handover {
 public:
  /// Keeps a reference to the client and gives it `wanted` at once, so that it never meets a server with less.
  Handover(cfm::Client& client, Model wanted);

  /// The server's cache is here, and the client acts on it when the callback that brought it returns.
  void Replied(const Model& before);

  /// Outside of the middleware's callbacks: whether the client has acted on a reply since the last call. Gives it the
  /// second step, if there is one.
  bool Settle();

  /// The server is gone: the client begins anew with the next.
  void Lost();

  /// Another configuration; the client sends at once what that changes when it is in step.
  void Replace(Model wanted);

  /// Whether Settle has something to do.
  bool replied() const { return replied_; }

  /// Whether the client has acted on the reply of the server that is there.
  bool in_step() const { return in_step_; }

 private:
  void Give(const Model& model);

  cfm::Client& client_;
  Model wanted_;
  std::optional<Model> step_;  ///< given before `wanted_`
  bool replied_ = false;
  bool in_step_ = false;
};

}  // namespace cfmctl

#endif
