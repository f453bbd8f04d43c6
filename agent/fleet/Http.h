#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace Agent {

/// What a client shows to a server, and how it knows the server's: PEM texts, each may be empty.
struct HttpCredentials {
  std::string authorities{};  ///< the certificates that vouch for servers; empty: those of the system
  std::string certificate{};
  std::string key{};
};

/// Questions to HTTP servers, and answers that go on and on. Everything of it is for one thread, except
/// wake() and stop(). Connections are kept and used again.
class Http {
 public:
  struct Answer {
    int status = 0;  ///< 0: there is none
    std::string body{};
    std::string wrong{};     ///< why there is none
    bool isUnknown = false;  ///< the server may have carried out what it was asked for
    bool isTooMuch = false;  ///< it is longer than the question allows
  };
  struct Question {
    std::string url;
    std::string body;
    std::string token{};      ///< of the header Authorization; empty: none
    double patience = 5;      ///< seconds
    size_t most = 96u << 20;  ///< octets of the answer
  };

  /// An answer that goes on until one side ends it.
  class Stream {
   public:
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// The next whole line without its end; false when there is none yet.
    bool next(std::string& line);
    bool isOpen() const;
    /// Why it is not open.
    std::string wrong() const;

   private:
    friend class Http;
    struct Transfer;
    explicit Stream(std::unique_ptr<Transfer> transfer);
    std::unique_ptr<Transfer> transfer_;
  };

  /// Why this program has no HTTP client; empty if it has one.
  static std::string whyNot();

  explicit Http(HttpCredentials credentials);
  ~Http();
  Http(const Http&) = delete;
  Http& operator=(const Http&) = delete;

  /// Waits for the answer; streams go on meanwhile.
  Answer post(const Question& question);
  /// Begins a stream; the time for it is not bounded, what waits to be taken from it is. The client outlives
  /// it.
  std::unique_ptr<Stream> stream(const Question& question);
  /// Waits until something comes in by a stream, wake() is called, or so many seconds have passed.
  void wait(double seconds);
  void wake();
  /// No question waits any longer, now or later. What has a patience of less than a second is still asked.
  void stop();

 private:
  struct Library;
  const std::unique_ptr<Library> library_;
};

}  // namespace Agent
