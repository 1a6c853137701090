#include "report.hpp"

#include <string_view>
#include <utility>

#include "exit_status.hpp"
#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"
#include "json_line.hpp"

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

std::string reason_of(const OperationReport& report) {
  return report.error ? report.error->text : "";
}

}  // namespace

void print_result(const CommandLineHost& host, const OperationReport& report) {
  const OperationResult& result = report.result;
  if (!result.ok) {
    print_failure(host, result.message, reason_of(report));
    return;
  }
  host.out << coloured(host, green, "ok: ") << visible_text(result.message) << '\n';
  if (!result.data.empty()) {
    host.out << "data: " << bytes_text(result.data) << '\n';
  }
}

void print_result_json(const CommandLineHost& host, const OperationReport& report) {
  nlohmann::ordered_json line{
      {"operation", report.operation}, {"device", report.device},
      {"ok", report.result.ok},        {"code", exit_status_word(exit_status_of(report))},
      {"data", report.result.data},    {"message", report.result.message}};
  if (report.error) {
    line["reason"] = report.error->text;
  }
  print_json_line(host, line);
}

void print_explanation_json(const CommandLineHost& host, const Explanation& explanation,
                            ExitStatus status) {
  auto line = nlohmann::ordered_json::parse(explanation_json(explanation));
  line["code"] = exit_status_word(status);
  print_json_line(host, line);
}

void print_failure(const CommandLineHost& host, const std::string& message,
                   const std::string& reason) {
  host.out << coloured(host, red, "failed: ") << visible_text(message)
           << (reason.empty() ? "" : " (" + visible_text(reason) + ")") << '\n';
}

void print_diagnostic(const CommandLineHost& host, const std::string& text) {
  host.err << "velmora-can-bridge: " << visible_text(text) << '\n';
}

std::optional<BoardFile> load_board(const CommandLineHost& host, const std::string& path) {
  LoadedBoard loaded = load_board_file(path);
  for (const Problem& problem : loaded.problems) {
    host.err << visible_text(problem_text(path, problem)) << '\n';
  }
  return std::move(loaded.file);
}

bool load_optional_board(const CommandLineHost& host, const std::string& path,
                         std::optional<BoardFile>& file) {
  if (path.empty()) {
    return true;
  }
  file = load_board(host, path);
  return file.has_value();
}

}  // namespace velmora_can_bridge
