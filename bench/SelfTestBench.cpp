// The editor on the real host, driven by the end-to-end scenario runner under
// a (virtual) display:
//   editor_open_2m_ms                 from the host's answer to GET file reaching
//                                     the page to the editor showing a 2 MiB page
//                                     (median of 20)
//   editor_keystroke_preview_ms       one keystroke in that page to the preview
//                                     showing it, painted (median of 20; any
//                                     pause the preview takes is included)
//   editor_keystroke_preview_100k_ms  the same in a 100 KiB page (median of 20)
//   editor_open_page_big_tree_ms      opening a 6 KB page while a folder of
//                                     5,000 entries is expanded in the tree
//                                     (median of 20)
//   history_open_ms                   the History panel opened on a page with
//                                     200 versions kept, from the call to the
//                                     list painted (median of 20)
//   editor_idle_two_frames_ms         the reference: two painted frames of the
//                                     idle editor, in the same runs (median of 20;
//                                     about 33 on an idle machine)
//   editor_bundle_kb                  the size of the served script bundle
//   e2e_suite_s                       the wall time of the whole scenario suite
//                                     (tests/e2e/suite), one scenario after another
// Every run goes through tests/e2e/run-scenario, which gives each its own
// copy of the site, its own recovery store and, without a display, xvfb-run.
// The timed scenarios live in bench/scenarios; the host reads them, with the
// suite's _common.js and their own _timing.js joined, from a scratch folder.
// A scenario run must report within the runner's 60 seconds, so the 20
// samples of each figure come from two runs of 10.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "contracts/Json.h"
#include "support/BenchSupport.h"

namespace {

using namespace vorna;
using contracts::Json;

constexpr size_t kBigPage = 2 * 1024 * 1024;
constexpr size_t kMidPage = 100 * 1024;
constexpr size_t kSmallPage = 6 * 1024;
constexpr int kTreeEntries = 5000;

const std::string kSource = VORNA_SOURCE_DIR;
const std::string kProgram = VORNA_PROGRAM;
const std::string kRunner = kSource + "/tests/e2e/run-scenario";
// Where the host finds the benchmark scenarios (set up by main).
std::string benchScenarios;

std::string quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) {
    out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return out + "'";
}

// A page of about `bytes`: ordinary paragraphs, as a long article would have.
std::string pageOf(size_t bytes) {
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n  <meta charset=\"utf-8\">\n"
      "  <title>A long page</title>\n</head>\n<body>\n  <h1>A long page</h1>\n";
  for (int n = 1; page.size() < bytes; ++n) {
    page += "  <p>Paragraph " + std::to_string(n) +
            ": the bakery opens at seven, the bread is out by eight, and the harbour "
            "is quiet until the boats come in.</p>\n";
  }
  page += "</body>\n</html>\n";
  return page;
}

// One folder holding the benchmark scenarios and, as their _common.js, the
// suite's helpers followed by the timing helpers.
std::string gatherScenarios(const std::string& into) {
  namespace fs = std::filesystem;
  fs::create_directories(into);
  std::ofstream common(into + "/_common.js", std::ios::binary);
  for (const std::string& part :
       {kSource + "/tests/e2e/_common.js", kSource + "/bench/scenarios/_timing.js"}) {
    common << std::ifstream(part, std::ios::binary).rdbuf() << "\n";
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(kSource + "/bench/scenarios")) {
    if (entry.path().filename().string().front() != '_') {
      fs::copy_file(entry.path(), fs::path(into) / entry.path().filename());
    }
  }
  return into;
}

// Runs one scenario on `site`; the JSON of its E2E-DONE line, or null.
Json runScenario(const std::string& scenario, const std::string& site) {
  std::string command = "VORNA_E2E_DIR=" + quoted(std::as_const(benchScenarios)) + " " +
                        quoted(kRunner) + " " + quoted(kProgram) + " " + quoted(scenario) + " " +
                        quoted(site);
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  if (!pipe) {
    return nullptr;
  }
  Json report = nullptr;
  char buffer[1 << 16];
  std::string line;
  while (std::fgets(buffer, sizeof buffer, pipe.get()) != nullptr) {
    line += buffer;
    if (line.empty() || line.back() != '\n') {
      continue;  // a long line comes in pieces
    }
    line.pop_back();
    const std::string prefix = "E2E-DONE ";
    if (line.compare(0, prefix.size(), prefix) == 0) {
      report = contracts::parseJson(line.substr(prefix.size())).value_or(nullptr);
    }
    line.clear();
  }
  return report;
}

// The medians of the samples that `runs` runs of a benchmark scenario noted
// under each of `keys`; negative when a run failed or noted fewer than `perRun`.
std::vector<double> mediansOf(const std::string& scenario, const std::string& site,
                              const std::vector<std::string>& keys, int runs, size_t perRun) {
  std::vector<std::vector<double>> samples(keys.size());
  for (int run = 0; run < runs; ++run) {
    Json report = runScenario(scenario, site);
    for (size_t k = 0; k < keys.size(); ++k) {
      const std::string& key = keys[k];
      if (!report.is_object() || report.value("ok", false) != true || !report.contains(key) ||
          !report[key].is_array() || report[key].size() != perRun) {
        std::fprintf(stderr, "SelfTestBench: %s gave no figures: %s\n", scenario.c_str(),
                     report.dump().c_str());
        return std::vector<double>(keys.size(), -1);
      }
      for (const Json& sample : report[key]) {
        samples[k].push_back(sample.get<double>());
      }
    }
  }
  std::vector<double> medians;
  for (size_t k = 0; k < keys.size(); ++k) {
    const std::vector<double>& all = samples[k];
    bench::printRow(
        scenario + " " + keys[k] + " (min / median / max of " + std::to_string(all.size()) + ")",
        std::to_string(bench::percentile(all, 0)) + " / " + std::to_string(bench::median(all)) +
            " / " + std::to_string(bench::percentile(all, 1)));
    medians.push_back(bench::median(all));
  }
  return medians;
}

double medianOf(const std::string& scenario, const std::string& site, const std::string& key,
                int runs, size_t perRun) {
  return mediansOf(scenario, site, {key}, runs, perRun)[0];
}

std::vector<std::string> suite() {
  std::vector<std::string> names;
  std::ifstream list(kSource + "/tests/e2e/suite");
  for (std::string line; std::getline(list, line);) {
    if (!line.empty() && line.front() != '#') {
      names.push_back(line);
    }
  }
  return names;
}

}  // namespace

int main() {
  if (std::getenv("VORNA_APP_DIR") == nullptr) {
    setenv("VORNA_APP_DIR", VORNA_EDITOR_DIR, 1);
  }
  bench::ScratchDir scratch("selftest");
  std::string site = scratch.path() + "/long-site";
  std::filesystem::create_directories(site);
  std::ofstream(site + "/big.html", std::ios::binary) << pageOf(kBigPage);
  std::ofstream(site + "/mid.html", std::ios::binary) << pageOf(kMidPage);
  std::ofstream(site + "/index.html") << "<!DOCTYPE html><title>Home</title><p>Home</p>\n";
  std::string tree = scratch.path() + "/tree-site";
  std::filesystem::create_directories(tree + "/many");
  std::ofstream(tree + "/page.html", std::ios::binary) << pageOf(kSmallPage);
  std::ofstream(tree + "/other.html", std::ios::binary) << pageOf(kSmallPage);
  for (int n = 0; n < kTreeEntries; ++n) {
    std::ofstream(tree + "/many/entry-" + std::to_string(n) + ".html") << "<p>" << n << "</p>\n";
  }

  benchScenarios = gatherScenarios(scratch.path() + "/scenarios");

  int status = 0;
  double open = medianOf("open-2m", site, "open_ms", 2, 10);
  double keystroke = medianOf("keystroke-2m", site, "keystroke_ms", 2, 10);
  std::vector<double> mid =
      mediansOf("keystroke-100k", site, {"keystroke_ms", "idle_frames_ms"}, 1, 20);
  double keystrokeMid = mid[0];
  double idleFrames = mid[1];
  double openInTree = medianOf("open-big-tree", tree, "open_page_ms", 1, 20);
  double historyOpen = medianOf("history-open", site, "open_ms", 2, 10);
  std::error_code sizeError;
  auto bundle = std::filesystem::file_size(std::string(VORNA_EDITOR_DIR) + "/editor.js", sizeError);

  double total = 0;
  for (const std::string& name : suite()) {
    double seconds = bench::timeCommand(quoted(kRunner) + " " + quoted(kProgram) + " " +
                                        quoted(name) + " " + quoted(kSource + "/tests/e2e/site"));
    bench::printRow("scenario " + name + " (s)", seconds < 0 ? "FAILED" : std::to_string(seconds));
    if (seconds < 0) {
      status = 1;
    }
    total += seconds < 0 ? 0 : seconds;
  }

  const std::pair<const char*, double> figures[] = {
      {"editor_open_2m_ms", open},
      {"editor_keystroke_preview_ms", keystroke},
      {"editor_keystroke_preview_100k_ms", keystrokeMid},
      {"editor_open_page_big_tree_ms", openInTree},
      {"history_open_ms", historyOpen},
      {"editor_idle_two_frames_ms", idleFrames},
  };
  for (const auto& [name, value] : figures) {
    if (value < 0) {
      status = 1;
    } else {
      bench::printBench(name, value);
    }
  }
  if (sizeError) {
    std::fprintf(stderr, "SelfTestBench: no editor bundle: %s\n", sizeError.message().c_str());
    status = 1;
  } else {
    bench::printBench("editor_bundle_kb", static_cast<double>(bundle) / 1024);
  }
  if (status == 0) {
    bench::printBench("e2e_suite_s", total);
  }
  return status;
}
