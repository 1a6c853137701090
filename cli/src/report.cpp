#include "report.hpp"

#include <string_view>
#include <utility>
#include <vector>

#include "exit_status.hpp"
#include "ground/number_text.hpp"
#include "ground/visible_text.hpp"
#include "json_line.hpp"

namespace velmora_can_bridge {
namespace {

constexpr std::string_view red = "\033[31m";
constexpr std::string_view green = "\033[32m";
constexpr std::string_view plain = "\033[0m";

/// In that colour where the stream may carry it.
std::string coloured(bool has_colour, std::string_view colour, std::string_view text) {
  if (!has_colour) {
    return std::string(text);
  }
  return std::string(colour) + std::string(text) + std::string(plain);
}

/// An object to which the members of a result are added.
nlohmann::ordered_json of_line(std::size_t line) {
  auto json = nlohmann::ordered_json::object();
  if (line != 0) {
    json["line"] = line;
  }
  return json;
}

std::string reason_of(const OperationReport& report) {
  return report.error ? report.error->text : "";
}

/// A message tells what was sent; this, how much more is known.
std::string drive_remark(const ShownDrive& drive) {
  if (drive.state.empty()) {
    return " (sent; the drive's state was not read)";
  }
  return (drive.is_awaited ? " (the drive has followed: " : " (sent; the drive shows ") +
         drive.state + ")";
}

nlohmann::ordered_json tolerated_json(const std::vector<BusError>& tolerated) {
  auto list = nlohmann::ordered_json::array();
  for (const BusError& error : tolerated) {
    list.push_back(
        {{"index", error.index}, {"sub_index", error.sub_index}, {"reason", error.text}});
  }
  return list;
}

std::string answer_text(const OperationReport& report) {
  const std::vector<std::uint8_t>& data = report.result.data;
  return (data.empty() ? "" : "data: " + bytes_text(data) + '\n') +
         (report.answer_words.empty() ? "" : "value: " + visible_text(report.answer_words) + '\n');
}

nlohmann::ordered_json answer_json(const std::vector<AnswerPart>& answer) {
  auto list = nlohmann::ordered_json::array();
  for (const AnswerPart& part : answer) {
    nlohmann::ordered_json value{{"index", part.index}, {"sub_index", part.sub_index}};
    add_reading(value, part.reading);
    list.push_back(std::move(value));
  }
  return list;
}

}  // namespace

std::string result_text(const OperationReport& report, bool colour,
                        const std::optional<ShownDrive>& drive) {
  const OperationResult& result = report.result;
  if (!result.ok) {
    return failure_text(result.message, reason_of(report), colour);
  }
  return coloured(colour, green, "ok: ") + visible_text(result.message) +
         (drive ? drive_remark(*drive) : "") + '\n' + answer_text(report);
}

void print_result(const CommandLineHost& host, const OperationReport& report,
                  const std::optional<ShownDrive>& drive) {
  if (report.result.ok) {
    host.out << result_text(report, host.colour, drive);
  } else {
    host.err << result_text(report, host.err_colour);
  }
}

void print_result_json(const CommandLineHost& host, const OperationReport& report,
                       const std::optional<ShownDrive>& drive, std::size_t line) {
  nlohmann::ordered_json json = of_line(line);
  json["operation"] = report.operation;
  json["device"] = report.device;
  json["ok"] = report.result.ok;
  json["code"] = exit_status_word(exit_status_of(report));
  json["data"] = report.result.data;
  json["message"] = report.result.message;
  if (!report.answer.empty()) {
    json["values"] = answer_json(report.answer);
  }
  if (report.error) {
    json["reason"] = report.error->text;
  }
  if (!report.tolerated.empty()) {
    json["tolerated"] = tolerated_json(report.tolerated);
  }
  if (drive && !drive->state.empty()) {
    json["drive_state"] = drive->state;
  }
  print_json_line(host, json);
}

void print_tolerated(const CommandLineHost& host, const OperationReport& report) {
  for (const BusError& error : report.tolerated) {
    print_diagnostic(host, "failed on the way: " + bus_error_text(error));
  }
}

void print_explanation_json(const CommandLineHost& host, const Explanation& explanation,
                            ExitStatus status, std::size_t line) {
  nlohmann::ordered_json json = of_line(line);
  json.update(nlohmann::ordered_json::parse(explanation_json(explanation)));
  json["code"] = exit_status_word(status);
  print_json_line(host, json);
}

std::string failure_text(const std::string& message, const std::string& reason, bool colour) {
  return coloured(colour, red, "failed: ") + visible_text(message) +
         (reason.empty() ? "" : " (" + visible_text(reason) + ")") + '\n';
}

void print_failure(const CommandLineHost& host, const std::string& message,
                   const std::string& reason) {
  host.err << failure_text(message, reason, host.err_colour);
}

void print_diagnostic(const CommandLineHost& host, const std::string& text) {
  host.err << coloured(host.err_colour, red, "velmora-can-bridge: ") << visible_text(text) << '\n';
}

void print_remark(const CommandLineHost& host, const std::string& text) {
  host.err << "velmora-can-bridge: " << visible_text(text) << '\n';
}

void print_problem(const CommandLineHost& host, const std::string& path, const Problem& problem) {
  const bool has_colour = host.err_colour && problem.severity == Severity::error;
  host.err << coloured(has_colour, red, visible_text(problem_text(path, problem))) << '\n';
}

std::optional<BoardFile> load_board(const CommandLineHost& host, const std::string& path) {
  LoadedBoard loaded = load_board_file(path);
  std::size_t warnings = 0;
  for (const Problem& problem : loaded.problems) {
    if (problem.severity == Severity::warning) {
      ++warnings;
    } else {
      print_problem(host, path, problem);
    }
  }
  if (warnings != 0) {
    print_remark(host, path + ": " + counted(warnings, "warning") +
                           "; \"velmora-can-bridge check " + path + "\" shows " +
                           (warnings == 1 ? "it" : "them"));
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
