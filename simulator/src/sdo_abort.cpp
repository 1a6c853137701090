#include "velmora_can_bridge/simulator/sdo_abort.hpp"

namespace velmora_can_bridge {

std::string_view sdo_abort_text(SdoAbort abort) {
  switch (abort) {
    case SdoAbort::timed_out:
      return "no answer from the node";
    case SdoAbort::read_of_write_only:
      return "the object can only be written";
    case SdoAbort::write_of_read_only:
      return "the object can only be read";
    case SdoAbort::no_such_object:
      return "no object at this index";
    case SdoAbort::value_too_long:
      return "too many bytes for the object";
    case SdoAbort::value_too_short:
      return "too few bytes for the object";
    case SdoAbort::no_such_sub_index:
      return "no such sub-index at this index";
  }
  return "unknown abort code";
}

}  // namespace velmora_can_bridge
