// The digests of many files: each kernel against libcrypto on one thread, and whole files out of the page
// cache against hashing them one by one, as tools that call a library do. usage: DigestBench FOLDER [ROUNDS];
// 2,300 files of 0.6 to 4 MiB are made in FOLDER unless they are there.

#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Benchmarks/SideBySide.hpp"
#include "SorrelFramework/Platform/Digest/Digest.hpp"
#include "SorrelFramework/Platform/Digest/MD5Constants.hpp"
#include "SorrelFramework/Platform/Digest/MD5Kernels.hpp"
#include "SorrelFramework/Units/FileHashBatch.hpp"
#include "SorrelFramework/Units/StreamFileHash.hpp"

namespace {

using namespace sorrel;
using namespace sorrel::bench;
namespace fs = std::filesystem;

constexpr std::size_t kThreads = 2;
constexpr std::size_t kFiles = 2300;
constexpr std::size_t kChunk = 16384;
constexpr std::size_t kStreams = 16;
constexpr std::size_t kChunksOfAStream = 1024;  // 256 MiB in all
constexpr double kMiB = 1024.0 * 1024.0;

/// Sum of the first words of digests, to compare the results of both sides.
using Found = double;

const std::vector<std::uint8_t>& memory() {
  static const std::vector<std::uint8_t> bytes = [] {
    std::vector<std::uint8_t> made(kStreams * (kChunk + kMD5Block));
    std::mt19937 random(1);
    for (std::uint8_t& byte : made) byte = static_cast<std::uint8_t>(random());
    return made;
  }();
  return bytes;
}
const std::uint8_t* stream(std::size_t number) { return memory().data() + number * (kChunk + kMD5Block); }

/// The padding after kChunksOfAStream chunks.
std::vector<std::uint8_t> padding() {
  std::vector<std::uint8_t> block(kMD5Block);
  block[0] = 0x80;
  const std::uint64_t bits = std::uint64_t{kChunksOfAStream} * kChunk * 8;
  std::memcpy(block.data() + 56, &bits, sizeof bits);
  return block;
}

Found byTheLibrary() {
  Found sum = 0;
  for (std::size_t number = 0; number < kStreams; ++number) {
    Digest digest(DigestKind::MD5);
    digest.start();
    for (std::size_t i = 0; i < kChunksOfAStream; ++i) digest.update(stream(number), kChunk);
    std::uint8_t bytes[16];
    digest.finish(bytes);
    std::uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    sum += word;
  }
  return sum;
}

Found byKernel(const MD5Kernel& kernel) {
  const auto end = padding();
  Found sum = 0;
  for (std::size_t first = 0; first < kStreams; first += kernel.lanes) {
    MD5States states;
    const std::uint8_t* blocks[kMostMD5Lanes];
    const std::uint8_t* ends[kMostMD5Lanes];
    for (std::size_t lane = 0; lane < kernel.lanes; ++lane) {
      for (std::size_t word = 0; word < 4; ++word) states[word][lane] = kMD5InitialState[word];
      blocks[lane] = stream(first + lane);
      ends[lane] = end.data();
    }
    for (std::size_t i = 0; i < kChunksOfAStream; ++i) kernel.run(states, blocks, kChunk / kMD5Block);
    kernel.run(states, ends, 1);
    for (std::size_t lane = 0; lane < kernel.lanes; ++lane) sum += states[0][lane];
  }
  return sum;
}

std::vector<std::string> makeFiles(const fs::path& folder) {
  fs::create_directories(folder);
  std::mt19937_64 random(7);
  std::vector<std::string> paths;
  std::vector<std::uint64_t> words(4 * 1024 * 1024 / 8);
  for (std::size_t i = 0; i < kFiles; ++i) {
    const std::size_t length = 600'000 + random() % (4'194'304 - 600'000);
    paths.push_back((folder / ("file" + std::to_string(i))).string());
    std::error_code error;
    if (fs::file_size(paths.back(), error) == length && !error) continue;
    std::mt19937_64 content(i);
    for (std::uint64_t& word : words) word = content();
    std::ofstream(paths.back(), std::ios::binary)
        .write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(length));
  }
  return paths;
}

Found sumOf(const std::vector<std::optional<std::string>>& hashes) {
  Found sum = 0;
  for (const auto& hash : hashes) sum += hash ? std::stod("0x" + hash->substr(0, 8)) : 0;
  return sum;
}

template <class Work>
void onAllThreads(const Work& work) {
  std::vector<std::thread> threads;
  for (std::size_t i = 1; i < kThreads; ++i) threads.emplace_back(work);
  work();
  for (std::thread& thread : threads) thread.join();
}

Found oneByOne(const std::vector<std::string>& paths) {
  std::vector<std::optional<std::string>> hashes(paths.size());
  std::atomic<std::size_t> begun{0};
  onAllThreads([&] {
    for (std::size_t i = 0; (i = begun++) < paths.size();) {
      hashes[i] = StreamFileHashUnit::shard().hashFile(paths[i]);
    }
  });
  return sumOf(hashes);
}

Found inBatch(const std::vector<std::string>& paths, const MD5Kernel& kernel) {
  FileHashBatch batch(paths, kThreads, kernel);
  onAllThreads([&] { batch.run(); });
  return sumOf(batch.hashes());
}

std::vector<const MD5Kernel*> supportedKernels() {
  std::vector<const MD5Kernel*> kernels;
  for (const MD5Kernel& kernel : md5Kernels()) {
    if (kernel.isSupported()) kernels.push_back(&kernel);
  }
  return kernels;
}

void printRates(const char* what, const std::vector<Variant>& variants, double bytes) {
  std::printf("\n%s, %.0f MiB\n%-40s %9s %9s %8s\n", what, bytes / kMiB, "variant", "median s", "GiB/s",
              "ratio");
  for (const Variant& variant : variants) {
    std::printf("%-40s %9.4f %9.2f %8.2f\n", variant.name.c_str(), variant.median(),
                bytes / kMiB / 1024 / variant.median(), variants[0].median() / variant.median());
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) {
    std::fprintf(stderr, "usage: %s FOLDER [ROUNDS]\n", arguments[0]);
    return 2;
  }
  const int rounds = count > 2 ? std::atoi(arguments[2]) : 7;
  const auto paths = makeFiles(arguments[1]);
  double bytes = 0;
  for (const std::string& path : paths) bytes += static_cast<double>(fs::file_size(path));

  std::vector<Variant> kernels{{"libcrypto", byTheLibrary}};
  std::vector<Variant> files{{"hashFile on each", [&] { return oneByOne(paths); }}};
  for (const MD5Kernel* kernel : supportedKernels()) {
    const std::string name(kernel->name);
    kernels.push_back({name, [kernel] { return byKernel(*kernel); }});
    files.push_back({"FileHashBatch, " + name, [&paths, kernel] { return inBatch(paths, *kernel); }});
  }
  measure(kernels, rounds);
  measure(files, rounds);
  printRates("In memory, 1 thread", kernels, static_cast<double>(kStreams * kChunksOfAStream * kChunk));
  printRates("2,300 cached files, 2 threads", files, bytes);

  std::printf("\n");
  Verdict verdict;
  for (const Variant& kernel : kernels)
    verdict.same(kernel.name + " finds what libcrypto finds", kernel.found, kernels[0].found);
  for (const Variant& way : files)
    verdict.same(way.name + " finds what hashFile finds", way.found, files[0].found);
  for (std::size_t i = 1; i < kernels.size(); ++i) {
    const MD5Kernel& kernel = *supportedKernels()[i - 1];
    const double wanted = kernel.lanes == 16 ? 0.2 : kernel.lanes == 8 ? 0.4 : 1.15;
    verdict.atMost(kernels[i].name + " / libcrypto, in memory", kernels[i].median() / kernels[0].median(),
                   wanted);
    const double wantedOfFiles = kernel.lanes == 16 ? 0.35 : kernel.lanes == 8 ? 0.5 : 1.05;
    verdict.atMost(files[i].name + " / hashFile", files[i].median() / files[0].median(), wantedOfFiles);
  }
  return verdict.exitStatus();
}
