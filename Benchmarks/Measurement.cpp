#include "Measurement.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iomanip>
#include <sstream>

namespace tervain::bench {
namespace {

std::string fixed(double value, int decimals, const char* unit = "") {
  std::ostringstream text;
  text << std::fixed << std::setprecision(decimals) << value << unit;
  return text.str();
}

std::string duration(double seconds) {
  return seconds < 1e-3 ? fixed(seconds * 1e6, 1, " µs") : fixed(seconds * 1e3, 2, " ms");
}

constexpr double mebibyte = 1024.0 * 1024.0;

}  // namespace

double Samples::quantile(double share) const {
  std::vector<double> sorted = seconds_;
  std::sort(sorted.begin(), sorted.end());
  const auto last = static_cast<double>(sorted.size() - 1);
  return sorted.at(static_cast<std::size_t>(share * last));
}

double now() {
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(since).count();
}

bool printTable(const std::vector<Row>& rows) {
  std::puts("| what | figure | yardstick | ratio | target | |");
  std::puts("|---|---|---|---|---|---|");
  bool all = true;
  for (const Row& row : rows) {
    std::printf("| %s | %s | %s | %s | %s | %s |\n", row.what.c_str(), row.figure.c_str(),
                row.yardstick.c_str(), row.ratio.c_str(), row.target.c_str(),
                row.reached ? "reached" : "MISSED");
    all = all && row.reached;
  }
  return all;
}

Row timesRow(const std::string& what, double figure, double yardstick, double limit) {
  return {what,
          duration(figure),
          duration(yardstick),
          fixed(figure / yardstick, 2),
          "at most " + fixed(limit, 1),
          figure <= limit * yardstick};
}

Row rateRow(const std::string& what, double figure, double yardstick, double limit) {
  return {what,
          fixed(figure / mebibyte, 0, " MiB/s"),
          fixed(yardstick / mebibyte, 0, " MiB/s"),
          fixed(figure / yardstick, 2),
          "at least " + fixed(limit, 1),
          figure >= limit * yardstick};
}

Row timeRow(const std::string& what, double figure, double bound) {
  return {what, duration(figure), "", "", "below " + duration(bound), figure < bound};
}

Row sizeRow(const std::string& what, double figure, double bound) {
  return {what, fixed(figure / mebibyte, 1, " MiB"),           "",
          "",   "below " + fixed(bound / mebibyte, 0, " MiB"), figure < bound};
}

}  // namespace tervain::bench
