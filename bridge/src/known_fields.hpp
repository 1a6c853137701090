// What is known of the bytes in the images of RPDOs.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "called_operation.hpp"
#include "image_use.hpp"
#include "velmora_can_bridge/board_config.hpp"
#include "velmora_can_bridge/bridge/transfer.hpp"
#include "velmora_can_bridge/bus/bus_error.hpp"

namespace velmora_can_bridge {

/// Which fields in the images of one node somebody knows: a load has read them, a frame has carried
/// them, or a drive or claw operation has repeated there what it has written.
///
/// Follows what the controller does with its images, by what it sees: the transfers, and that
/// images were to be forgotten. When the controller does forget it does not see: that is with the
/// next operation that locks the images. So what is known has an age, the count of forgets when the
/// call began that brought it about; and two rules go by it. A frame that goes out without a load
/// before it shows that the image was not forgotten since the last load, whatever its age. A
/// refresh that keeps bytes counts them as known only where they are as young as the last forget.
///
/// Safe to use from any thread.
class KnownFields {
 public:
  using Age = std::uint64_t;
  /// One for each of `image_fields`.
  using Marks = std::vector<bool>;

  /// Of a field: why its last read failed; no value when it was read, or never tried.
  using Failure = std::optional<BusError>;

  struct Unknown {
    const PdoMapping* field = nullptr;
    Failure failure;
  };

  /// `board` outlives this object. Nothing is known.
  explicit KnownFields(const BoardConfig& board) : board_(&board) {}

  /// What `other` knows now. What either learns from then on does not concern the other.
  KnownFields(const KnownFields& other);
  KnownFields(KnownFields&&) = delete;
  KnownFields& operator=(const KnownFields&) = delete;
  KnownFields& operator=(KnownFields&&) = delete;
  ~KnownFields() = default;

  /// To be called before the controller is told to forget, and again when it was told. Takes no
  /// lock.
  void forget() noexcept { ++age_; }

  /// What calls that begin now bring about has this age.
  Age age() const { return age_; }

  /// Changes with everything that makes a field known or unknown.
  std::uint64_t changes() const;

  /// The image was loaded: `reads` has marks for what was read. A refresh keeps the other bytes.
  void loaded(const ImageLoad& load, const Marks& reads, Age age);

  /// A read for the image has failed.
  void failed(std::uint8_t rpdo, std::size_t field, const BusError& error);

  /// All images that carry the object, at sub-index 0, repeat as many bytes.
  void mirrored(std::uint16_t index, std::size_t size, Age age);

  /// A frame with the image was sent.
  void sent(std::uint8_t rpdo, Age age);

  /// The node has taken the bytes of this field.
  void written(std::uint8_t rpdo, const PdoMapping& field, Age age);

  /// Of all fields that nobody knows.
  Marks unknown(std::uint8_t rpdo) const;

  /// What there is to say of a field.
  Unknown why(std::uint8_t rpdo, std::size_t field) const;

 private:
  struct Image {
    std::vector<ImageField> fields;
    Marks known;
    Age known_age = 0;
    Marks mirrored;
    Age mirrored_age = 0;
    std::vector<Failure> failures;
  };

  KnownFields(const KnownFields& other, const std::lock_guard<std::mutex>& lock);
  Image& image(std::uint8_t rpdo) const;
  Image& image_of_age(std::uint8_t rpdo, Age age);
  bool is_known(const Image& image, std::size_t field) const;

  const BoardConfig* const board_;
  std::atomic<Age> age_{0};
  // Guards the members below. A leaf: nothing that locks is called with it held.
  mutable std::mutex mutex_;
  // Filled with what is asked for.
  mutable std::map<std::uint8_t, Image> images_;
  std::uint64_t changes_ = 0;
};

/// One call of an operation, followed by its transfers. One thread.
class ImageWatch {
 public:
  /// Refers to all arguments; they outlive this object. To be made before the operation begins.
  /// `mode` is the recorded mode of operation of the device. With `force` nothing is refused.
  ImageWatch(const CalledOperation& call, KnownFields& known, std::uint8_t mode, bool force);

  /// A transfer is about to begin: why it must not, or no value.
  std::optional<BusError> refusal(const Transfer& transfer);

  /// A transfer has ended.
  void note(const Transfer& transfer);

  /// The operation has come to its end.
  void finish();

 private:
  struct Mirrored {
    std::uint16_t index = 0;
    std::size_t size = 0;
  };

  void note_read(const Transfer& transfer);
  void note_write(const Transfer& transfer);
  std::optional<std::size_t> unknown_field(const Transfer& transfer) const;
  std::uint8_t rpdo_of(const Transfer& transfer) const;

  const CalledOperation* const call_;
  KnownFields* const known_;
  const std::uint8_t mode_;
  const bool force_;
  const KnownFields::Age age_;
  const std::optional<ImageLoad> load_;
  std::vector<ImageField> fields_;
  // One for each field that the load has read or tried to read so far.
  KnownFields::Marks reads_;
  // A read was not the next one of the load: nothing more of it counts.
  bool has_strayed_ = false;
  // Was written, and stands in the images as soon as the operation goes on.
  std::optional<Mirrored> written_;
};

}  // namespace velmora_can_bridge
