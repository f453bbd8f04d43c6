#include <agent/fleet/Http.h>

#ifdef VELO_HAS_CURL
#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>
#endif

namespace Agent {

#ifdef VELO_HAS_CURL

namespace {

constexpr long connectMilliseconds = 3000;
/// Between asking whether the other end is there, once a minute has passed without a word.
constexpr long keepAliveSeconds = 10;
/// What is still asked when nothing is to wait any longer: to say goodbye.
constexpr double lastPatience = 1;

struct FreeHeaders {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using Headers = std::unique_ptr<curl_slist, FreeHeaders>;

void addHeader(Headers& headers, const std::string& line) {
  curl_slist* const more = curl_slist_append(headers.get(), line.c_str());
  if (!more) throw std::bad_alloc();
  (void)headers.release();
  headers.reset(more);
}

curl_blob blobOf(const std::string& text) {
  return {const_cast<char*>(text.data()), text.size(), CURL_BLOB_COPY};
}

}  // namespace

/// One question and what has come of its answer. The library calls back into it, so it stays where it is.
struct Http::Stream::Transfer {
  /// `count` is of the octets of all transfers of a client.
  Transfer(CURLM* multiple, const HttpCredentials& credentials, const Question& question, uint64_t& count);
  ~Transfer() {
    if (added) curl_multi_remove_handle(multi, easy);
    curl_easy_cleanup(easy);
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  void begin() {
    added = curl_multi_add_handle(multi, easy) == CURLM_OK;
    if (!added) finish(CURLE_OUT_OF_MEMORY);
  }
  void finish(CURLcode how) {
    done = true;
    code = how;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
  }
  std::string wrong() const {
    if (tooMuch) return "the answer is more than is taken";
    if (code == CURLE_OK) return "the server has ended it";
    return *error ? error : curl_easy_strerror(code);
  }
  static size_t write(char* data, size_t size, size_t count, void* self) {
    auto& to = *static_cast<Transfer*>(self);
    const size_t octets = size * count;
    to.tooMuch = to.received.size() - to.taken + octets > to.most;
    if (to.tooMuch) return octets + 1;  // ends the transfer
    to.received.append(data, octets);
    to.arrived += octets;
    return octets;
  }

  CURLM* const multi;
  CURL* const easy;
  Headers headers;
  const std::string body;
  const size_t most;
  uint64_t& arrived;
  std::string received;
  size_t taken = 0;  // octets of it
  char error[CURL_ERROR_SIZE] = "";
  bool added = false, done = false, tooMuch = false;
  CURLcode code = CURLE_OK;
  long status = 0;
};

Http::Stream::Transfer::Transfer(CURLM* multiple, const HttpCredentials& credentials,
                                 const Question& question, uint64_t& count)
    : multi(multiple), easy(curl_easy_init()), body(question.body), most(question.most), arrived(count) {
  if (!easy) throw std::bad_alloc();
  addHeader(headers, "Content-Type: application/json");
  for (const char* none : {"Accept:", "Expect:"}) addHeader(headers, none);
  if (!question.token.empty()) addHeader(headers, "Authorization: " + question.token);
  curl_easy_setopt(easy, CURLOPT_URL, question.url.c_str());
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(easy, CURLOPT_PROXY, "");
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
  curl_easy_setopt(easy, CURLOPT_TCP_KEEPINTVL, keepAliveSeconds);
  curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connectMilliseconds);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, error);
  curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, write);
  const auto pem = [this](CURLoption option, const std::string& text) {
    curl_blob blob = blobOf(text);
    if (!text.empty()) curl_easy_setopt(easy, option, &blob);
  };
  pem(CURLOPT_CAINFO_BLOB, credentials.authorities);
  pem(CURLOPT_SSLCERT_BLOB, credentials.certificate);
  pem(CURLOPT_SSLKEY_BLOB, credentials.key);
}

Http::Stream::Stream(std::unique_ptr<Transfer> transfer) : transfer_(std::move(transfer)) {}
Http::Stream::~Stream() = default;
bool Http::Stream::isOpen() const { return !transfer_->done; }
std::string Http::Stream::wrong() const { return transfer_->wrong(); }

bool Http::Stream::next(std::string& line) {
  Transfer& from = *transfer_;
  const size_t end = from.received.find('\n', from.taken);
  if (end == std::string::npos) {
    from.received.erase(0, std::exchange(from.taken, 0));
    return false;
  }
  line.assign(from.received, from.taken, end - from.taken);
  from.taken = end + 1;
  return true;
}

struct Http::Library {
  using Transfer = Stream::Transfer;

  explicit Library(HttpCredentials given) : credentials(std::move(given)), multi(made()) {}
  ~Library() { curl_multi_cleanup(multi); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  static CURLM* made() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    CURLM* const multi = curl_multi_init();
    if (!multi) throw std::bad_alloc();
    return multi;
  }

  /// Moves what can be moved. If nothing has come by that, waits at most so long until something can be
  /// moved.
  void turn(int milliseconds) {
    int running = 0;
    const uint64_t before = arrived;
    curl_multi_perform(multi, &running);
    if (collect() || arrived != before) return;
    curl_multi_poll(multi, nullptr, 0, milliseconds, nullptr);
    curl_multi_perform(multi, &running);
    collect();
  }
  bool collect() {
    bool any = false;
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
      if (message->msg != CURLMSG_DONE) continue;
      Transfer* transfer = nullptr;
      curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
      transfer->finish(message->data.result);
      any = true;
    }
    return any;
  }

  const HttpCredentials credentials;
  CURLM* const multi;
  uint64_t arrived = 0;
  std::atomic<bool> stopped = false;
};

std::string Http::whyNot() { return ""; }

Http::Http(HttpCredentials credentials) : library_(std::make_unique<Library>(std::move(credentials))) {}
Http::~Http() = default;

Http::Answer Http::post(const Question& question) {
  Stream::Transfer transfer(library_->multi, library_->credentials, question, library_->arrived);
  const bool isLast = question.patience < lastPatience;
  curl_easy_setopt(transfer.easy, CURLOPT_TIMEOUT_MS, static_cast<long>(question.patience * 1000));
  transfer.begin();
  while (!transfer.done && (isLast || !library_->stopped)) library_->turn(1000);
  if (!transfer.done) return {.wrong = "it is not waited for any longer", .isUnknown = true};
  if (transfer.code == CURLE_OK)
    return {static_cast<int>(transfer.status), std::move(transfer.received), {}, false};
  const bool isBefore = transfer.code == CURLE_COULDNT_CONNECT || transfer.code == CURLE_COULDNT_RESOLVE_HOST;
  return {.wrong = transfer.wrong(), .isUnknown = !isBefore, .isTooMuch = transfer.tooMuch};
}

std::unique_ptr<Http::Stream> Http::stream(const Question& question) {
  auto transfer =
      std::make_unique<Stream::Transfer>(library_->multi, library_->credentials, question, library_->arrived);
  transfer->begin();
  return std::unique_ptr<Stream>(new Stream(std::move(transfer)));
}

void Http::wait(double seconds) {
  if (!library_->stopped) library_->turn(static_cast<int>(std::clamp(seconds, 0.0, 3600.0) * 1000));
}
void Http::wake() { curl_multi_wakeup(library_->multi); }
void Http::stop() {
  library_->stopped = true;
  wake();
}

#else

struct Http::Stream::Transfer {};
struct Http::Library {};

std::string Http::whyNot() {
  return "this velo was built without libcurl, by which it speaks to a fleet's store";
}

Http::Http(HttpCredentials) {}
Http::~Http() = default;
Http::Answer Http::post(const Question&) { return {.wrong = whyNot()}; }
std::unique_ptr<Http::Stream> Http::stream(const Question&) { return nullptr; }
void Http::wait(double) {}
void Http::wake() {}
void Http::stop() {}
Http::Stream::Stream(std::unique_ptr<Transfer>) {}
Http::Stream::~Stream() = default;
bool Http::Stream::next(std::string&) { return false; }
bool Http::Stream::isOpen() const { return false; }
std::string Http::Stream::wrong() const { return whyNot(); }

#endif

}  // namespace Agent
