#include "known_fields.hpp"

#include <algorithm>
#include <utility>

#include "ground/number_text.hpp"
#include "ground/pdo.hpp"

namespace velmora_can_bridge {
namespace {

BusError unknown_error(std::uint8_t node_id, const KnownFields::Unknown& unknown) {
  const PdoMapping& field = *unknown.field;
  // What was never asked for nobody has refused to tell; it is a failure of the operation alone.
  BusError error = unknown.failure.value_or(BusError{});
  const std::string reason = unknown.failure ? error.text : "it was never read";
  error.node_id = node_id;
  error.index = field.index;
  error.sub_index = field.sub_index;
  error.text = "the node's value of " +
               (field.field.empty() ? object_text(field.index, field.sub_index) : field.field) +
               " is not known (" + reason + ")";
  return error;
}

}  // namespace

KnownFields::KnownFields(const KnownFields& other)
    : KnownFields(other, std::lock_guard<std::mutex>(other.mutex_)) {}

KnownFields::KnownFields(const KnownFields& other, const std::lock_guard<std::mutex>& /*lock*/)
    : board_(other.board_), age_(other.age_.load()), images_(other.images_) {}

std::uint64_t KnownFields::changes() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return changes_;
}

/// Runs with the lock held, as all below that are private.
KnownFields::Image& KnownFields::image(std::uint8_t rpdo) const {
  const auto found = images_.find(rpdo);
  if (found != images_.end()) {
    return found->second;
  }
  Image image;
  image.fields = image_fields(*board_, rpdo);
  image.known.resize(image.fields.size());
  image.mirrored.resize(image.fields.size());
  image.failures.resize(image.fields.size());
  return images_.emplace(rpdo, std::move(image)).first->second;
}

/// The image, without what may have been forgotten.
KnownFields::Image& KnownFields::image_of_age(std::uint8_t rpdo, Age age) {
  Image& found = image(rpdo);
  if (found.known_age != age_) {
    found.known.assign(found.fields.size(), false);
    found.known_age = age;
  }
  return found;
}

bool KnownFields::is_known(const Image& image, std::size_t field) const {
  return image.known[field] || (image.mirrored[field] && image.mirrored_age == age_);
}

void KnownFields::loaded(const ImageLoad& load, const Marks& reads, Age age) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Image& image = image_of_age(load.rpdo, age);
  const Marks before = image.known;
  for (std::size_t field = 0; field < reads.size(); ++field) {
    image.known[field] = reads[field] || is_known(image, field);
    if (reads[field]) {
      image.failures[field].reset();
    }
  }
  changes_ += image.known == before ? 0U : 1U;
}

void KnownFields::failed(std::uint8_t rpdo, std::size_t field, const BusError& error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  image(rpdo).failures[field] = error;
}

void KnownFields::mirrored(std::uint16_t index, std::size_t size, Age age) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (age != age_) {
    return;  // may be forgotten already
  }
  for (const PdoConfig& pdo : board_->pdos) {
    if (!is_rpdo(pdo)) {
      continue;
    }
    Image& mirror = image(pdo.number);
    if (mirror.mirrored_age != age) {
      mirror.mirrored.assign(mirror.fields.size(), false);
      mirror.mirrored_age = age;
    }
    for (std::size_t field = 0; field < mirror.fields.size(); ++field) {
      const ImageField& place = mirror.fields[field];
      const bool is_it = place.mapping->index == index && place.mapping->sub_index == 0;
      mirror.mirrored[field] = mirror.mirrored[field] || (is_it && place.length <= size);
    }
  }
  ++changes_;
}

void KnownFields::sent(std::uint8_t rpdo, Age age) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Image& image = image_of_age(rpdo, age);
  const auto all = static_cast<std::ptrdiff_t>(image.fields.size());
  if (std::count(image.known.begin(), image.known.end(), true) != all) {
    image.known.assign(image.fields.size(), true);
    ++changes_;
  }
}

void KnownFields::written(std::uint8_t rpdo, const PdoMapping& field, Age age) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Image& image = image_of_age(rpdo, age);
  for (std::size_t number = 0; number < image.fields.size(); ++number) {
    if (image.fields[number].mapping == &field) {
      image.known[number] = true;
      ++changes_;
    }
  }
}

KnownFields::Marks KnownFields::unknown(std::uint8_t rpdo) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Image& found = image(rpdo);
  Marks marks(found.fields.size());
  for (std::size_t field = 0; field < marks.size(); ++field) {
    marks[field] = !is_known(found, field);
  }
  return marks;
}

KnownFields::Unknown KnownFields::why(std::uint8_t rpdo, std::size_t field) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Image& found = image(rpdo);
  return {found.fields.at(field).mapping, found.failures.at(field)};
}

ImageWatch::ImageWatch(const CalledOperation& call, KnownFields& known, std::uint8_t mode,
                       bool force)
    : call_(&call),
      known_(&known),
      mode_(mode),
      force_(force),
      age_(known.age()),
      load_(image_load(call, mode)) {
  if (load_) {
    fields_ = image_fields(call.node.board, load_->rpdo);
  }
}

std::optional<BusError> ImageWatch::refusal(const Transfer& transfer) {
  finish();
  const std::optional<std::size_t> field = force_ ? std::nullopt : unknown_field(transfer);
  if (!field) {
    return std::nullopt;
  }
  return unknown_error(call_->node.node_id, known_->why(rpdo_of(transfer), *field));
}

/// The first field that the transfer would carry and that nobody knows.
std::optional<std::size_t> ImageWatch::unknown_field(const Transfer& transfer) const {
  const PdoMapping* const carried = written_from_image(*call_, transfer);
  if (transfer.kind != TransferKind::rpdo && carried == nullptr) {
    return std::nullopt;
  }
  KnownFields::Marks unknown = known_->unknown(rpdo_of(transfer));
  const auto first = [&] { return std::find(unknown.begin(), unknown.end(), true); };
  if (first() == unknown.end()) {
    return std::nullopt;
  }
  const KnownFields::Marks written = carried == nullptr ? written_whole(*call_, mode_, transfer)
                                                        : KnownFields::Marks(unknown.size());
  for (std::size_t field = 0; field < unknown.size(); ++field) {
    const bool is_carried = carried == nullptr || fields_[field].mapping == carried;
    unknown[field] = unknown[field] && is_carried && !written[field];
  }
  return first() == unknown.end()
             ? std::nullopt
             : std::make_optional(static_cast<std::size_t>(first() - unknown.begin()));
}

std::uint8_t ImageWatch::rpdo_of(const Transfer& transfer) const {
  return transfer.kind == TransferKind::rpdo || !load_ ? transfer.rpdo : load_->rpdo;
}

void ImageWatch::note(const Transfer& transfer) {
  switch (transfer.kind) {
    case TransferKind::sdo_read:
      note_read(transfer);
      return;
    case TransferKind::sdo_write:
      note_write(transfer);
      return;
    case TransferKind::rpdo:
      if (!transfer.error) {
        known_->sent(transfer.rpdo, age_);
      }
      return;
  }
}

/// What a load has read is known when it has ended: one that fails leaves the image as it was.
void ImageWatch::note_read(const Transfer& transfer) {
  const std::size_t field = reads_.size();
  const bool belongs = !has_strayed_ && field < fields_.size() &&
                       fields_[field].mapping->index == transfer.index &&
                       fields_[field].mapping->sub_index == transfer.sub_index;
  if (!belongs) {
    // Perhaps of another image: another thread has set the mode of operation meanwhile.
    has_strayed_ = true;
    return;
  }
  reads_.push_back(!transfer.error);
  if (transfer.error) {
    known_->failed(load_->rpdo, field, *transfer.error);
  }
  const bool has_failed = transfer.error && !load_->is_refresh;
  if (!has_failed && reads_.size() == fields_.size()) {
    known_->loaded(*load_, reads_, age_);
  }
}

void ImageWatch::note_write(const Transfer& transfer) {
  if (transfer.error) {
    return;
  }
  if (is_mirrored(*call_, transfer)) {
    written_ = Mirrored{transfer.index, transfer.data.size()};
  }
  const PdoMapping* const carried = written_from_image(*call_, transfer);
  if (carried != nullptr && force_) {
    known_->written(load_->rpdo, *carried, age_);
  }
}

void ImageWatch::finish() {
  if (written_) {
    known_->mirrored(written_->index, written_->size, age_);
    written_.reset();
  }
}

}  // namespace velmora_can_bridge
