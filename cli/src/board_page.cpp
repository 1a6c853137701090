#include "board_page.hpp"

#include "man_page.hpp"
#include "markdown_page.hpp"

namespace velmora_can_bridge {

Expected<std::string> board_man_page(std::string_view document) {
  MarkdownPage page;
  page.title = {board_page_name, 5, "format of the board files of velmora-can-bridge"};
  page.left_out = {"Threads and lifetime"};  // of the library
  page.see_also = {roff_reference(program_name, 1), roff_reference(man_page_name("check"), 1),
                   roff_reference(man_page_name("operations"), 1)};
  return markdown_man_page(document, page);
}

}  // namespace velmora_can_bridge
