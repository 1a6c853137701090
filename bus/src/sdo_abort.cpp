#include "velmora_can_bridge/bus/sdo_abort.hpp"

#include "ground/number_text.hpp"

namespace velmora_can_bridge {

std::string_view sdo_abort_text(SdoAbort abort) {
  switch (abort) {
    case SdoAbort::toggle_not_alternated:
      return "a segment came out of turn";
    case SdoAbort::timed_out:
      return "the SDO transfer timed out";
    case SdoAbort::unknown_command:
      return "the SDO command is unknown";
    case SdoAbort::invalid_block_size:
      return "the block size is invalid";
    case SdoAbort::invalid_sequence_number:
      return "the sequence number of the block is invalid";
    case SdoAbort::crc_error:
      return "the checksum of the block is wrong";
    case SdoAbort::out_of_memory:
      return "the node is out of memory";
    case SdoAbort::unsupported_access:
      return "the object cannot be accessed so";
    case SdoAbort::read_of_write_only:
      return "the object can only be written";
    case SdoAbort::write_of_read_only:
      return "the object can only be read";
    case SdoAbort::no_such_object:
      return "no object at this index";
    case SdoAbort::not_mappable:
      return "the object cannot be mapped to a PDO";
    case SdoAbort::pdo_too_long:
      return "the mapped objects are longer than a PDO";
    case SdoAbort::parameter_incompatible:
      return "the parameter does not fit the others";
    case SdoAbort::device_incompatible:
      return "the parameter does not fit the device";
    case SdoAbort::hardware_error:
      return "a hardware error of the node";
    case SdoAbort::wrong_length:
      return "the length does not fit the object";
    case SdoAbort::value_too_long:
      return "too many bytes for the object";
    case SdoAbort::value_too_short:
      return "too few bytes for the object";
    case SdoAbort::no_such_sub_index:
      return "no such sub-index at this index";
    case SdoAbort::invalid_value:
      return "the value is invalid";
    case SdoAbort::value_too_high:
      return "the value is too high";
    case SdoAbort::value_too_low:
      return "the value is too low";
    case SdoAbort::maximum_below_minimum:
      return "the maximum is below the minimum";
    case SdoAbort::no_sdo_connection:
      return "the node has no resource for it";
    case SdoAbort::general_error:
      return "general error";
    case SdoAbort::cannot_store:
      return "the value cannot be transferred or stored";
    case SdoAbort::local_control:
      return "not while the node is controlled locally";
    case SdoAbort::device_state:
      return "not in the present state of the node";
    case SdoAbort::no_object_dictionary:
      return "the node has no object dictionary";
    case SdoAbort::no_data:
      return "no data are available";
  }
  return "unknown abort code";
}

std::string sdo_abort_line(std::uint32_t code) {
  return "abort " + hex<8>(code) + ", " + std::string(sdo_abort_text(SdoAbort{code}));
}

}  // namespace velmora_can_bridge
