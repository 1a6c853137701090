// Writes the manual pages while the program is built: man_page_writer FOLDER BOARD_FILE_DOCUMENT
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "board_page.hpp"
#include "man_page.hpp"

namespace bridge = velmora_can_bridge;

namespace {

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error(path + " cannot be read");
  }
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Each section of the manual has a folder.
void write_page(const std::filesystem::path& folder, const std::string& name, int section,
                const std::string& page) {
  const std::string number = std::to_string(section);
  std::filesystem::create_directories(folder / ("man" + number));
  const std::filesystem::path path = folder / ("man" + number) / (name + "." + number);
  std::ofstream file(path, std::ios::binary);
  if (!(file << page).flush()) {
    throw std::runtime_error(path.string() + " cannot be written");
  }
}

void write_pages(const std::filesystem::path& folder, const std::string& board_document) {
  write_page(folder, bridge::man_page_name(""), 1, bridge::program_man_page());
  for (const bridge::CommandHelp& command : bridge::command_helps()) {
    write_page(folder, bridge::man_page_name(command.name), 1, bridge::man_page(command));
  }
  const auto board = bridge::board_man_page(read_file(board_document));
  if (!board) {
    throw std::runtime_error(board_document + ": " + board.error());
  }
  write_page(folder, bridge::board_page_name, 5, *board);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    if (arguments.size() != 2) {
      throw std::runtime_error("expected a folder and the document of board files");
    }
    write_pages(arguments[0], arguments[1]);
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << "man_page_writer: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
}
