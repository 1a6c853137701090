#include "report.hpp"

#include <string_view>

#include "json_line.hpp"
#include "printable.hpp"
#include "tracing_backend.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::string_view red = "\033[31m";
constexpr std::string_view green = "\033[32m";
constexpr std::string_view plain = "\033[0m";

std::string coloured(const CommandLineHost& host, std::string_view colour, std::string_view text) {
  if (!host.colour) {
    return std::string(text);
  }
  return std::string(colour) + std::string(text) + std::string(plain);
}

}  // namespace

void print_result(const CommandLineHost& host, const OperationReport& report) {
  const OperationResult& result = report.result;
  if (!result.ok) {
    host.out << coloured(host, red, "failed: ") << printable(result.message)
             << (report.refusal ? " (" + *report.refusal + ")" : "") << '\n';
    return;
  }
  host.out << coloured(host, green, "ok: ") << printable(result.message) << '\n';
  if (!result.data.empty()) {
    host.out << "data: " << bytes_text(result.data) << '\n';
  }
}

void print_result_json(const CommandLineHost& host, const OperationReport& report) {
  nlohmann::ordered_json line{{"operation", report.operation},
                              {"device", report.device},
                              {"ok", report.result.ok},
                              {"data", report.result.data},
                              {"message", report.result.message}};
  if (report.refusal) {
    line["reason"] = *report.refusal;
  }
  print_json_line(host, line);
}

void print_diagnostic(const CommandLineHost& host, const std::string& text) {
  host.err << "velmora-can-bridge: " << printable(text) << '\n';
}

std::optional<BoardFile> load_board(const CommandLineHost& host, const std::string& path) {
  LoadedBoard loaded = load_board_file(path);
  for (const Problem& problem : loaded.problems) {
    host.err << problem_text(path, problem) << '\n';
  }
  return std::move(loaded.file);
}

}  // namespace velmora_can_bridge
