// The main of a target without the fuzzer's library: runs inputs from files, and random ones.

#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size);

namespace {

namespace fs = std::filesystem;
using Octets = std::vector<uint8_t>;

constexpr const char* usage =
    "usage: %s [--runs N] [--seconds N] [--seed N] [--crash FILE] [FILE|DIRECTORY]...\n"
    "Runs the inputs in the files, then random ones of the seed (1): N of them, or for N seconds. One that "
    "is\n"
    "found to be wrong ends the program and is left in FILE (crash-input).\n";
constexpr size_t mostOctets = 4096;

/// The input at hand, for when the process does not get behind it.
Octets current;
std::string crashFile = "crash-input";

/// Writes what is at hand: by calls that are allowed in a signal handler.
void handleCrash(int signal) {
  std::signal(signal, SIG_DFL);
  if (std::FILE* file = std::fopen(crashFile.c_str(), "wb")) {
    std::fwrite(current.data(), 1, current.size(), file);
    std::fclose(file);
    std::fprintf(stderr, "the input is in %s\n", crashFile.c_str());
  }
  std::raise(signal);
}

Octets readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path.string() + " cannot be read");
  return Octets(std::istreambuf_iterator<char>(file), {});
}

std::vector<fs::path> filesIn(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) {
    // A folder is kept in the tree by a hidden file.
    if (entry.is_regular_file() && !entry.path().filename().string().starts_with('.'))
      files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

/// What is thrown is found, too.
void run(Octets octets) noexcept {
  current = std::move(octets);
  LLVMFuzzerTestOneInput(current.data(), current.size());
}

/// Small ones as often as large ones.
Octets randomInput(std::mt19937_64& random) {
  Octets octets(random() % (size_t{1} << (random() % 13)) % mostOctets);
  for (uint8_t& octet : octets) octet = static_cast<uint8_t>(random());
  return octets;
}

uint64_t number(const char* text) {
  char* end = nullptr;
  const uint64_t value = text ? std::strtoull(text, &end, 10) : 0;
  if (!text || end == text || *end != '\0') throw std::invalid_argument("a number is missing");
  return value;
}

}  // namespace

int main(int argc, char** argv) try {
  uint64_t runs = 0, seconds = 0, seed = 1;
  std::vector<fs::path> paths;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--runs") {
      runs = number(argv[++i]);
    } else if (argument == "--seconds") {
      seconds = number(argv[++i]);
    } else if (argument == "--seed") {
      seed = number(argv[++i]);
    } else if (argument == "--crash" && i + 1 < argc) {
      crashFile = argv[++i];
    } else if (argument.starts_with("-")) {
      std::fprintf(stderr, usage, argv[0]);
      return 2;
    } else {
      paths.emplace_back(argument);
    }
  }
  LLVMFuzzerInitialize(&argc, &argv);
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGALRM})
    std::signal(signal, handleCrash);

  // One that takes as long as this has lost its way.
  constexpr unsigned mostSecondsOfAnInput = 60;
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  uint64_t fromFiles = 0, atRandom = 0;
  for (const fs::path& path : paths) {
    for (const fs::path& file : filesIn(path)) {
      alarm(mostSecondsOfAnInput);
      run(readFile(file));
      ++fromFiles;
    }
  }
  std::mt19937_64 random(seed);
  while (atRandom < runs || elapsed() < static_cast<double>(seconds)) {
    alarm(mostSecondsOfAnInput);
    run(randomInput(random));
    ++atRandom;
  }
  std::printf("%llu inputs of files, %llu random ones of seed %llu, %.1f s\n",
              static_cast<unsigned long long>(fromFiles), static_cast<unsigned long long>(atRandom),
              static_cast<unsigned long long>(seed), elapsed());
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
  return 2;
}
