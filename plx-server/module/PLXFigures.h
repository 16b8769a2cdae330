#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

// Writes figures in the text format that monitoring systems read (Prometheus, version 0.0.4): for each name
// what it means and its type, then a line for each set of labels. A name that ends in "_total" is a counter,
// every other a gauge.
class PLXFigureText {
 public:
  // Begins the lines of a name. Without help that line is left out.
  void Begin(std::string_view name_i, std::string_view help_i);
  // `labels_i` is empty or `a="b",c="d"`, values escaped already.
  void Add(std::string_view labels_i, double value_i);
  // Begin and Add of a figure without labels.
  void AddOnly(std::string_view name_i, std::string_view help_i, double value_i);
  std::string const& Text() const { return myText; }

 private:
  std::string myText;
  std::string myName;
};

// As the value of a label stands between its quotes. What is no UTF-8 loses its bytes beyond ASCII to "?".
std::string PLXEscapedLabel(std::string_view value_i);

// The figures that modules keep for the operator, by name and labels: counters, whose names end in "_total"
// and which only grow, and gauges. They live as long as the process. Any thread.
//
// A series is written as in the text format: `plx_mail_sent_total` or `plx_includes_total{status="200"}`.
// Names that begin with "plxserver_" are the server's own and refused.
class PLXFigures {
 public:
  // Beyond it new series are refused, so that labels which outsiders can choose do not fill the memory.
  static constexpr std::size_t kSeriesMost = 10000;
  static constexpr std::size_t kSeriesBytesMost = 1000;  // a name with its labels, and a help text

  enum class Answer { kDone, kInvalid, kFull };
  struct Series {
    std::map<std::string, std::string> labels;
    double value = 0;
  };

  // A new series begins with 0. Invalid: what does not parse, a value that is no finite number, less than 0
  // for a counter.
  Answer Add(std::string_view series_i, double amount_i);
  // Gauges alone.
  Answer Set(std::string_view series_i, double value_i);
  // "NAME what it is": the meaning of a name without labels. A name that never got a value shows as none.
  Answer Describe(std::string_view text_i);

  // Whether a module has described this name, or given it a value.
  bool Has(std::string_view name_i) const;
  double Sum(std::string_view name_i) const;  // of its series; 0 without any
  std::vector<Series> List(std::string_view name_i) const;
  void AppendTo(PLXFigureText& text_io) const;

 private:
  struct Family {
    std::string help;
    std::map<std::string, Series> series;  // by their labels, as they are written
  };
  static bool Parse(std::string_view text_i, std::string& name_o, Series& series_o);
  Answer Change(std::string_view series_i, double value_i, bool isAdded_i);

  mutable std::mutex myMutex;  // guards all below
  std::map<std::string, Family, std::less<>> myFamilies;
  std::size_t mySeriesCount = 0;
};
