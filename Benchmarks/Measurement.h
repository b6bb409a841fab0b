#pragma once

#include <string>
#include <vector>

namespace tervain::bench {

/// Seconds that something took, once each.
class Samples {
 public:
  void add(double seconds) { seconds_.push_back(seconds); }
  /// The value below which this share of the samples lies, 0.5 being the median.
  [[nodiscard]] double quantile(double share) const;

 private:
  std::vector<double> seconds_;
};

/// Seconds on a clock that only goes forward.
double now();

/// A figure beside its yardstick of the same run, or beside a fixed bound.
struct Row {
  std::string what;
  std::string figure;
  std::string yardstick;
  std::string ratio;  ///< empty beside a fixed bound
  std::string target;
  bool reached;
};

/// Prints the rows as a Markdown table. False when one of them missed its target.
bool printTable(const std::vector<Row>& rows);

/// A row that compares times: at most `limit` times the yardstick.
Row timesRow(const std::string& what, double figure, double yardstick, double limit);

/// A row that compares rates in bytes per second: at least `limit` times the yardstick.
Row rateRow(const std::string& what, double figure, double yardstick, double limit);

/// A row of a time in seconds below a bound.
Row timeRow(const std::string& what, double figure, double bound);

/// A row of a size in bytes below a bound.
Row sizeRow(const std::string& what, double figure, double bound);

}  // namespace tervain::bench
