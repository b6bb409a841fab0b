#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "tervainctl/Mcp/Eras.h"
#include "tervainctl/Mcp/Tools.h"
#include "tervainctl/Mcp/Workers.h"

namespace tervain::mcp {

/// A server of the Model Context Protocol: takes a host's messages, and answers them, those that
/// call tools whenever they are done.
class Server {
 public:
  /// Writes a line without its line feed to the host. One call at a time.
  using Output = std::function<void(std::string_view line)>;

  Server(Connect connect, Output output, std::string version);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Takes a message. Nothing is waited for.
  void receive(std::string_view line);

  /// Says that a message was too long to be taken.
  void refuseLongLine();

  /// Ends when no more messages come: calls that are nearly through get their replies, the others
  /// are cut off, commands killed. False when some have not ended even so, as they wait for what
  /// can't be ended.
  [[nodiscard]] bool finish();

 private:
  void take(const Request& request);
  void take(const Notification& notification);
  void startCall(const Request& request);
  void runCall(const Request& request, const ctl::Command& tool, Interruption& interruption);
  void answer(const Request& request, Json result, Keep keep = Keep::no);
  void write(const Json& message);

  std::string version_;
  std::mutex outputMutex_;
  Output output_;
  Tools tools_;
  std::mutex callsMutex_;
  std::map<Json, std::shared_ptr<Interruption>> calls_;  // under way, by their ids
  Workers workers_;                                      // its threads use all of the above
};

/// Serves a host on two descriptors until the first one ends. Returns what `finish` does.
bool serve(Server& server, int input);

}  // namespace tervain::mcp
