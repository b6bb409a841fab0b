#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <string_view>

#include "tervainctl/Commands.h"

namespace tervain::ctl {

/// A request whose members are options of a subcommand.
class RequestOptions {
 public:
  RequestOptions(CLI::App& options, std::string_view op)
      : options_(options), request_(std::make_shared<Json>(Json{{"op", op}})) {}

  /// Declares an option for a member. A name without dashes makes it positional and required.
  template <class Value>
  CLI::Option* add(const char* key, const std::string& name, const std::string& help) const {
    const auto store = [request = request_, key](const Value& value) { (*request)[key] = value; };
    return options_.add_option_function<Value>(name, store, help)->required(name.front() != '-');
  }

  /// The request, complete once the command line has been parsed.
  [[nodiscard]] std::shared_ptr<Json> request() const { return request_; }

  /// Tells the agent the request.
  [[nodiscard]] Action action() const {
    return [request = request_](AgentConnection& connection, const Call&) {
      return tell(connection, *request);
    };
  }

 private:
  CLI::App& options_;
  std::shared_ptr<Json> request_;
};

}  // namespace tervain::ctl
