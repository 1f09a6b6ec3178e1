#include "benchmarks/performance/Page.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace kelvane::benchmarks {
namespace {

std::string megabytes(double bytes) {
  return decimal(bytes / 1e6, bytes < 9.95e6 ? 1 : 0) + " MB";
}

std::string row(const std::vector<std::string>& cells) {
  std::string line = "|";
  for (const std::string& cell : cells) line.append(" ").append(cell).append(" |");
  return line + "\n";
}

/// The lines above a table's first row; the first column is text, the others numbers.
std::string header(const std::vector<std::string>& cells) {
  std::string line = row(cells) + "|---|";
  for (std::size_t at = 1; at < cells.size(); ++at) line += "--:|";
  return line + "\n";
}

std::string picture(const std::string& name, const std::string& words) {
  return "\n<picture>\n  <source media=\"(prefers-color-scheme: dark)\" srcset=\"performance/" + name +
         "-dark.svg\">\n  <img alt=\"" + words + "\" src=\"performance/" + name + ".svg\">\n</picture>\n";
}

/// The figure with that name, on as few CPUs as it was measured with.
std::optional<Figure> find(const Record& record, const std::string& part, const std::string& key,
                           const std::string& name) {
  for (const Figure& figure : record.part(part)) {
    if (figure.string(key) == name) return figure;
  }
  return std::nullopt;
}

std::string missed(const Figure& figure) {
  return figure.flag("isMissed") ? " **missed**" : "";
}

// --- What a person feels ---

std::string feeling(const Record& record) {
  std::string text;
  if (const auto ours = find(record, "servers", "server", "kelvane")) {
    text += "Kelvane starts in " + duration(ours->number("start")) + " and takes " +
            megabytes(ours->number("memoryAtStart")) + " of memory. A script of 4 KB is read in " +
            duration(ours->number("read")) + ", one of 50 MB in " + duration(ours->number("readLarge")) + ".\n";
  }
  if (const auto list = find(record, "floors", "what", "list_scripts of 100,000 scripts in 5,000 folders"))
    text += "A library of 100,000 scripts in 5,000 folders is listed in " + duration(list->number("ours")) + ".\n";
  if (const auto update =
          find(record, "floors", "what", "update_script of 200 KB on the disk, beside itself without flushing")) {
    text += "A new text of 200 KB is in its place, and the old one in the history, both flushed to the disk, in " +
            duration(update->number("ours")) + "; all but " + duration(update->number("floor")) +
            " of that is the disk's flushing.\n";
  }
  return text + "\n";
}

std::string machine(const Record& record) {
  const std::vector<Figure> figures = record.part("machine");
  if (figures.empty()) return "";
  const Figure& here = figures.front();
  std::string text = "All of this is one run of `./run bench`, on " + here.string("date") + ", on a machine with " +
                     grouped(here.number("cores")) + " cores (" + here.string("processor") + ", " +
                     here.string("kernel") + "), of the release build by " + here.string("compiler") +
                     ". Times are this machine's; ratios carry further. Medians everywhere.\n";
  if (here.has("versions")) text += "Versions: " + here.string("versions") + ".\n";
  return text;
}

/// How many demands there are, and how many are missed.
std::string demands(const Record& record) {
  std::size_t all = 0, missed = 0;
  for (const char* part : {"floors", "values", "limits", "json"}) {
    for (const Figure& figure : record.part(part)) {
      if (figure.has("must") && figure.number("must") == 0) continue;
      ++all;
      missed += figure.flag("isMissed") ? 1 : 0;
    }
  }
  return "The tables say what must be: " + decimal(static_cast<double>(all), 0) +
         " demands, of which this run misses " + decimal(static_cast<double>(missed), 0) + ". Those are marked.\n";
}

// --- The tables ---

std::string servers(const Record& record) {
  const std::vector<Figure> rows = record.part("servers");
  if (rows.empty()) return "";
  std::string text =
      "\n## Whole servers\n\n"
      "Client and server on one CPU, connected by pipes. The floor is a C program that answers each line with a fixed "
      "reply.\nThe other server has one tool, `read_script`, in a few lines on the official TypeScript SDK.\n\n" +
      header({"server", "start", "ping", "pings a second, without waiting", "read 4 KB", "read 50 MB",
              "memory at start", "after load", "after 50 MB"});
  for (const Figure& server : rows) {
    const auto time = [&](const char* key) { return server.has(key) ? duration(server.number(key)) : "–"; };
    const auto memory = [&](const char* key) { return server.has(key) ? megabytes(server.number(key)) : "–"; };
    text += row({server.string("server"), time("start"), time("ping"), grouped(server.number("rate")), time("read"),
                 time("readLarge"), memory("memoryAtStart"), memory("memoryAfterLoad"), memory("memoryAfterLarge")});
  }
  return text;
}

std::string floors(const Record& record) {
  const std::vector<Figure> rows = record.part("floors");
  std::string text;
  if (!rows.empty()) {
    text +=
        "\n## Beside the floor\n\n"
        "A floor (`benchmarks/floors/`) is a small C program that reads and writes the same bytes and checks nothing. "
        "Both work in\nturn, and each pair gives one ratio, so that what disturbs the machine disturbs both. In "
        "brackets "
        "are the quartiles of the\nratios. With one CPU client and server share it; with two each has its own, and "
        "waking the other one up is most of a short\nrequest. Rows that end in \"over 1,000\" compare the program with "
        "itself in a smaller library.\n\n" +
        header({"what", "CPUs", "ours", "floor", "ours / floor", "must be"});
    for (const Figure& each : rows) {
      const double must = each.number("must");
      std::string demand = "–";
      if (must > 0 && each.flag("isShare"))
        demand = "share of the rate ≥ " + decimal(must, 2) + ", is " + decimal(1 / each.number("ratio"), 2);
      else if (must > 0)
        demand = "≤ " + decimal(must, 2);
      text += row({each.string("what"), decimal(each.number("cpus"), 0), duration(each.number("ours")),
                   duration(each.number("floor")),
                   decimal(each.number("ratio"), 2) + " (" + decimal(each.number("low"), 2) + "–" +
                       decimal(each.number("high"), 2) + ")",
                   demand + missed(each)});
    }
    text += picture("floors", "The ratios to the floors");
  }
  const std::vector<Figure> values = record.part("values");
  if (values.empty()) return text;
  text += "\n" + header({"what", "is", "must be"});
  for (const Figure& each : values) {
    const double must = each.number("must");
    const std::string unit = " " + each.string("unit");
    text += row({each.string("what"), decimal(each.number("value"), 2) + unit,
                 (must > 0 ? "≤ " + decimal(must, 1) + unit : "–") + missed(each)});
  }
  return text;
}

std::string growth(const Record& record) {
  const std::vector<Figure> figures = record.part("growth");
  if (figures.empty()) return "";
  std::vector<std::string> tools, directions;
  const auto note = [](std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  };
  for (const Figure& figure : figures) {
    note(tools, figure.string("tool"));
    note(directions, figure.string("direction"));
  }
  std::string text =
      "\n## Growth\n\n"
      "The server's processor time for one call at the largest size, and in brackets the exponent of the last decade: "
      "1 is linear growth, "
      "0 "
      "is none.\nFiles are in memory, so that no disk hides a growth. Above 1 MB the server gives memory back after "
      "each call, and the system\nhas to provide it again; the last decade is beyond that step.\n\n";
  std::vector<std::string> head{"tool"}, largest{"*largest size*"};
  for (const std::string& direction : directions) {
    head.push_back(direction);
    for (const Figure& figure : figures) {
      if (figure.string("direction") != direction) continue;
      largest.push_back(grouped(figure.numbers("sizes").back()));
      break;
    }
  }
  text += header(head) + row(largest);
  for (const std::string& tool : tools) {
    std::vector<std::string> cells{tool};
    for (const std::string& direction : directions) {
      std::string cell = "–";
      for (const Figure& figure : figures) {
        if (figure.string("tool") != tool || figure.string("direction") != direction) continue;
        // A flat line has an exponent of about 0, on either side.
        const double exponent = std::max(figure.number("exponent"), 0.0);
        cell = duration(figure.numbers("seconds").back()) + " (" + decimal(exponent, 2) + ")";
      }
      cells.push_back(cell);
    }
    text += row(cells);
  }
  return text + picture("growth", "The time of each tool as something grows");
}

std::string limits(const Record& record) {
  const std::vector<Figure> rows = record.part("limits");
  if (rows.empty()) return "";
  std::string text =
      "\n## A hundred megabytes of anything\n\n"
      "Each is one line that a client sends. It is served or refused, in linear processor time (an exponent of at most "
      "1.1 from "
      "10 "
      "to 100 MB)\nand with at most 30 times its bytes of memory.\n\n" +
      header({"100 MB of", "10 MB", "100 MB", "exponent", "memory over the bytes"});
  for (const Figure& each : rows) {
    text += row({each.string("what"), duration(each.number("seconds10")), duration(each.number("seconds100")),
                 decimal(each.number("exponent"), 2), decimal(each.number("memory"), 1) + missed(each)});
  }
  return text;
}

std::string json(const Record& record) {
  std::vector<Figure> figures = record.part("json");
  if (figures.empty()) return "";
  std::vector<std::string> peers;
  std::vector<std::pair<std::string, std::string>> rows;
  for (const Figure& figure : figures) {
    const std::pair<std::string, std::string> name{figure.string("task"), figure.string("text")};
    const std::string peer = figure.string("peer");
    if (std::find(peers.begin(), peers.end(), peer) == peers.end()) peers.push_back(peer);
    if (std::find(rows.begin(), rows.end(), name) == rows.end()) rows.push_back(name);
  }
  std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string text =
      "\n## JSON\n\n"
      "The peer's time over Kelvane's, each in a process of its own: above 1 the peer takes longer. Decoding is from "
      "text "
      "to a\nvalue that owns what it holds, which is then destroyed; encoding is from a value to text. simdjson's "
      "value can only be read\nand belongs to its parser. Must be: no peer ahead on requests (calls, updates) or in "
      "encoding, and RapidJSON twice "
      "as long in\ndecoding.\n\n";
  std::vector<std::string> head{"what", "Kelvane, MB/s"};
  head.insert(head.end(), peers.begin(), peers.end());
  text += header(head);
  const auto value = [&](const char* part, const auto& name, const std::string& peer) -> std::string {
    for (const Figure& figure : record.part(part)) {
      if (figure.string("task") == name.first && figure.string("text") == name.second && figure.string("peer") == peer)
        return part == std::string("json") ? decimal(figure.number("value"), 2) + missed(figure)
                                           : grouped(figure.number("value"));
    }
    return "–";
  };
  for (const auto& name : rows) {
    std::vector<std::string> cells{name.first + " " + name.second, value("json-rate", name, "kelvane")};
    for (const std::string& peer : peers) cells.push_back(value("json", name, peer));
    text += row(cells);
  }
  return text + picture("json", "The time of the JSON peers over ours");
}

}  // namespace

std::string performancePage(const Record& record) {
  return "# Performance\n\n" + feeling(record) + machine(record) + demands(record) + servers(record) + floors(record) +
         growth(record) + limits(record) + json(record) +
         "\n## Measuring again\n\n"
         "`./run bench` measures all of this, in about ten minutes on a machine that does nothing else, and writes "
         "this "
         "page and its\ncharts. `./run bench WORD…` measures what has one of the words in its name, for instance "
         "`./run bench \"growth of list_scripts\"`,\nand writes nothing. `benchmarks/counts.txt` has the "
         "instructions and system calls of typical requests, which depend on no\nother load. `KELVANE_TEST_DATA` "
         "names the folder in which `json-corpora` holds the three public JSON files.\n";
}

}  // namespace kelvane::benchmarks
