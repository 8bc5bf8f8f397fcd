#include "SorrelFramework/Platform/Digest/MD5Lanes.hpp"

#include <algorithm>
#include <cstring>

#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"

namespace sorrel {

MD5Lanes::MD5Lanes(const MD5Kernel& kernel)
    : kernel_(kernel), buffers_(std::make_unique_for_overwrite<std::uint8_t[]>(kernel.lanes * kBuffer)) {}

void MD5Lanes::start(std::size_t lane) {
  lanes_[lane] = {State::Open};
  for (std::size_t i = 0; i < kMD5InitialState.size(); ++i) states_[i][lane] = kMD5InitialState[i];
}

void MD5Lanes::drop(std::size_t lane) { lanes_[lane] = {}; }

bool MD5Lanes::wantsBytes(std::size_t lane) const {
  return lanes_[lane].state == State::Open && lanes_[lane].blocks() == 0;
}

std::span<std::uint8_t> MD5Lanes::room(std::size_t lane) {
  Lane& own = lanes_[lane];
  std::memmove(buffer(lane), buffer(lane) + own.from, own.to - own.from);
  own.to -= own.from;
  own.from = 0;
  return {buffer(lane) + own.to, kChunk};
}

void MD5Lanes::add(std::size_t lane, std::size_t length) {
  lanes_[lane].to += length;
  lanes_[lane].length += length;
}

// RFC 1321, 3.1 and 3.2: a one bit, zeros, and the length in bits in the last eight bytes of a block.
void MD5Lanes::end(std::size_t lane) {
  Lane& own = lanes_[lane];
  own.state = State::Ended;
  std::uint8_t* const bytes = room(lane).data();
  const std::size_t rest = own.to;
  const std::size_t padded = (rest + 1 + 8 + kMD5Block - 1) / kMD5Block * kMD5Block;
  std::fill(bytes, bytes + (padded - rest), std::uint8_t{0});
  bytes[0] = 0x80;
  const std::uint64_t bits = own.length * 8;
  for (std::size_t i = 0; i < 8; ++i) {
    buffer(lane)[padded - 8 + i] = static_cast<std::uint8_t>(bits >> (8 * i));
  }
  own.to = padded;
}

void MD5Lanes::run() {
  std::size_t busy = 0;
  std::size_t blocks = kBuffer / kMD5Block;
  for (const Lane& lane : lanes_) {
    if (lane.state == State::Idle) continue;
    ++busy;
    blocks = std::min(blocks, lane.blocks());
  }
  if (busy >= kernel_.leastLanes) {
    runSideBySide(blocks);
  } else {
    runOneByOne();
  }
}

void MD5Lanes::runSideBySide(std::size_t blocks) {
  const std::uint8_t* from[kMostMD5Lanes];
  const std::uint8_t* anyBusy = nullptr;
  for (std::size_t lane = 0; lane < kernel_.lanes; ++lane) {
    from[lane] = isBusy(lane) ? buffer(lane) + lanes_[lane].from : nullptr;
    if (isBusy(lane)) anyBusy = from[lane];
  }
  // An idle lane has no state to keep: it reads the same bytes as a busy one.
  std::replace(from, from + kernel_.lanes, static_cast<const std::uint8_t*>(nullptr), anyBusy);
  kernel_.run(states_, from, blocks);
  for (Lane& lane : lanes_) {
    if (lane.state != State::Idle) lane.from += blocks * kMD5Block;
  }
}

void MD5Lanes::runOneByOne() {
  for (std::size_t lane = 0; lane < kernel_.lanes; ++lane) {
    Lane& own = lanes_[lane];
    if (own.state == State::Idle) continue;
    runMD5Lane(states_, lane, buffer(lane) + own.from, own.blocks());
    own.from += own.blocks() * kMD5Block;
  }
}

bool MD5Lanes::isDone(std::size_t lane) const {
  return lanes_[lane].state == State::Ended && lanes_[lane].from == lanes_[lane].to;
}

std::array<std::uint8_t, 16> MD5Lanes::digest(std::size_t lane) {
  std::array<std::uint8_t, 16> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(states_[i / 4][lane] >> (i % 4 * 8));
  }
  drop(lane);
  return bytes;
}

}  // namespace sorrel
