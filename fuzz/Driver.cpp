// The main of a target without the fuzzer's library: runs inputs from files, and random ones.

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int*, char***);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size);

namespace {

namespace fs = std::filesystem;
using Octets = std::vector<uint8_t>;

constexpr const char* usage =
    "usage: %s [--runs N] [--seconds N] [--seed N] [--crash FILE] [FILE|DIRECTORY]...\n"
    "       %s --write DIRECTORY --runs N [--seed N]\n"
    "Runs the inputs in the files, then random ones of the seed (1): N of them, or for N seconds. One that "
    "is\n"
    "found to be wrong ends the program and is left in FILE (crash-input). With --write the random ones are\n"
    "left in the directory instead, as SEED-NUMBER.\n";
constexpr size_t mostOctets = 4096;

/// The input at hand, for when the process does not get behind it.
Octets current;
std::string crashFile = "crash-input";
std::string crashMessage;

bool writeAll(int file, const void* octets, size_t size) {
  for (const char* at = static_cast<const char*>(octets); size > 0;) {
    const ssize_t written = write(file, at, size);
    if (written <= 0) return false;
    at += written;
    size -= static_cast<size_t>(written);
  }
  return true;
}

/// Writes what is at hand: by calls that are allowed in a signal handler. The signal then takes its course.
void handleCrash(int signal) {
  const int file = open(crashFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file >= 0 && writeAll(file, current.data(), current.size()))
    writeAll(STDERR_FILENO, crashMessage.data(), crashMessage.size());
  std::raise(signal);
}

/// An input may have used up the stack.
void catchCrashes() {
  crashMessage = fmt::format("the input is in {}\n", crashFile);
  static std::vector<char> stack(size_t{64} << 10);
  stack_t alternate{};
  alternate.ss_sp = stack.data();
  alternate.ss_size = stack.size();
  sigaltstack(&alternate, nullptr);
  struct sigaction action {};
  action.sa_handler = handleCrash;
  action.sa_flags = static_cast<int>(SA_ONSTACK | SA_RESETHAND);
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGALRM})
    sigaction(signal, &action, nullptr);
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

void writeInputs(const fs::path& directory, uint64_t seed, uint64_t count) {
  fs::create_directories(directory);
  std::mt19937_64 random(seed);
  for (uint64_t i = 0; i < count; ++i) {
    const fs::path path = directory / fmt::format("{}-{}", seed, i);
    const Octets octets = randomInput(random);
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(octets.data()), static_cast<std::streamsize>(octets.size()));
    if (!file.flush()) throw std::runtime_error(path.string() + " cannot be written");
  }
}

uint64_t number(const char* text) {
  const std::string_view digits = text ? text : "";
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (digits.empty() || error != std::errc() || end != digits.data() + digits.size())
    throw std::invalid_argument(fmt::format("a number is needed, found \"{}\"", digits));
  return value;
}

/// What the program is asked to do.
struct Options {
  uint64_t runs = 0, seconds = 0, seed = 1;
  std::vector<fs::path> paths;
  fs::path writeTo;  ///< empty: inputs are run, not written
};

/// Nothing, when the arguments cannot be understood.
std::optional<Options> optionsOf(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--runs") {
      options.runs = number(argv[++i]);
    } else if (argument == "--seconds") {
      options.seconds = number(argv[++i]);
    } else if (argument == "--seed") {
      options.seed = number(argv[++i]);
    } else if (argument == "--crash" && i + 1 < argc) {
      crashFile = argv[++i];
    } else if (argument == "--write" && i + 1 < argc) {
      options.writeTo = argv[++i];
    } else if (argument.starts_with("-")) {
      return std::nullopt;
    } else {
      options.paths.emplace_back(argument);
    }
  }
  return options;
}

/// One that takes as long as this has lost its way.
constexpr unsigned mostSecondsOfAnInput = 60;

uint64_t runFiles(const std::vector<fs::path>& paths) {
  uint64_t count = 0;
  for (const fs::path& path : paths) {
    for (const fs::path& file : filesIn(path)) {
      alarm(mostSecondsOfAnInput);
      run(readFile(file));
      ++count;
    }
  }
  return count;
}

/// Runs at least `runs` random inputs, and others until so many seconds have passed.
template <class Elapsed>
uint64_t runRandom(const Options& options, const Elapsed& elapsed) {
  // Before the first: who finds something does not get to the end.
  std::printf("random inputs of seed %llu\n", static_cast<unsigned long long>(options.seed));
  std::fflush(stdout);
  std::mt19937_64 random(options.seed);
  uint64_t count = 0;
  while (count < options.runs || elapsed() < static_cast<double>(options.seconds)) {
    alarm(mostSecondsOfAnInput);
    run(randomInput(random));
    ++count;
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) try {
  const std::optional<Options> options = optionsOf(argc, argv);
  if (!options) {
    std::fprintf(stderr, usage, argv[0], argv[0]);
    return 2;
  }
  if (!options->writeTo.empty()) {
    writeInputs(options->writeTo, options->seed, options->runs);
    return 0;
  }
  LLVMFuzzerInitialize(&argc, &argv);
  catchCrashes();
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  const uint64_t fromFiles = runFiles(options->paths), atRandom = runRandom(*options, elapsed);
  std::printf("%llu inputs of files, %llu random ones of seed %llu, %.1f s\n",
              static_cast<unsigned long long>(fromFiles), static_cast<unsigned long long>(atRandom),
              static_cast<unsigned long long>(options->seed), elapsed());
  return 0;
} catch (const std::exception& error) {
  std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
  return 2;
}
