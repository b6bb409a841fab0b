#pragma once

#include <functional>
#include <string>

#include "tervainctl/CommandTable/CommandTable.h"
#include "tervainctl/Mcp/Interruption.h"
#include "tervainctl/Mcp/Snapshots.h"
#include "tervainctl/Mcp/Space.h"

namespace tervain::mcp {

/// Connects to the agent anew. What it throws is told to the model.
using Connect = std::function<UniqueFD()>;

/// What the tools do, and what they remember between calls: refs, and the space of coordinates.
/// Calls run side by side, each on a thread. Every call ends in time, whatever the guest does.
class Tools {
 public:
  explicit Tools(Connect connect) : connect_(std::move(connect)) {}

  /// The result of a call, as the protocol has it: a failure is one, too. Throws nothing.
  Json call(const ctl::Command& tool, const Json& arguments, Interruption& interruption);

 private:
  struct Call {
    const ctl::Command& tool;
    const Json& arguments;
    Interruption& interruption;
  };
  using Method = Json (Tools::*)(const Call& call);

  static Method methodOf(std::string_view tool);

  Json status(const Call& call);
  Json snapshot(const Call& call);
  Json find(const Call& call);
  Json wait(const Call& call);
  Json press(const Call& call);
  Json setValue(const Call& call);
  Json focus(const Call& call);
  Json click(const Call& call);
  Json move(const Call& call);
  Json drag(const Call& call);
  Json type(const Call& call);
  Json request(const Call& call);
  Json screenshot(const Call& call);
  Json exec(const Call& call);

  AgentConnection connect(const Call& call) const;
  Json found(AgentConnection connection, std::vector<Match> matches, const std::string& remark);

  /// Does something to the element that a call names, on the connection where its ref is good.
  using Deed = std::function<std::string(AgentConnection&, const Match&)>;
  Json act(const Call& call, const Deed& deed);

  Connect connect_;
  Snapshots snapshots_;
  Space space_;
};

}  // namespace tervain::mcp
