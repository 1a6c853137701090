#include "board_page.hpp"

#include "man_page.hpp"
#include "markdown_page.hpp"

namespace velmora_can_bridge {
namespace {

/// Where the example board is.
std::string example_files() {
  return roff_entry(roff_italic("share/doc/velmora_can_bridge/examples/robot_board.yaml"),
                    "the example board, below the folder under which the program is installed, "
                    "such as " +
                        roff_italic("/usr/local")) +
         roff_entry(roff_italic("/usr/share/doc/velmora-can-bridge/examples/robot_board.yaml"),
                    "the example board, where the program is installed as a Debian package");
}

}  // namespace

Expected<std::string> board_man_page(std::string_view document) {
  MarkdownPage page;
  page.title = {board_page_name, 5, "format of the board files of velmora-can-bridge"};
  page.left_out = {"Threads and lifetime"};  // of the library
  page.files = example_files();
  page.see_also = {roff_reference(program_name, 1), roff_reference(man_page_name("check"), 1),
                   roff_reference(man_page_name("operations"), 1)};
  return markdown_man_page(document, page);
}

}  // namespace velmora_can_bridge
