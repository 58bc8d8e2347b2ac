// A handle of the transfer library with the connections that it keeps.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "flow.h"

namespace TAVOCloud {

// How one request ended.
struct Outcome {
  CURLcode code = CURLE_OK;
  long response = 0;   // the server's last reply: FTP's, or the status of HTTP
  int os_error = 0;    // errno of a connection that could not be made
  bool fresh = false;  // a connection was opened for it
  std::string words;   // for people; holds no secret
  bool ok() const { return code == CURLE_OK; }
};

// A list of lines for the library.
class CurlList {
 public:
  // False when there is no memory for it.
  [[nodiscard]] bool Append(const std::string& line);
  curl_slist* get() const { return list_.get(); }

 private:
  struct Free {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };
  std::unique_ptr<curl_slist, Free> list_;
};

// Not for several threads at a time. A server that did not answer in time is waited for
// only a few seconds, whichever handle of the process asks it, until it answers again.
class CurlHandle {
 public:
  explicit CurlHandle(long connections);

  // False when there is no memory for it.
  [[nodiscard]] bool IsUsable() const { return handle_ != nullptr && driver_ != nullptr; }
  CURL* get() const { return handle_.get(); }

  // Forgets all that servers have said, challenges included; connections stay.
  void Renew() { handle_.reset(curl_easy_init()); }

  // Requests end when `flow` is told to stop; null: they do not.
  void Watch(Flow* flow) { watched_ = flow; }
  Flow* watched() const { return watched_; }
  // Requests give up after a few seconds: for cleaning up after a stop.
  void Hurry(bool hurry) { hurry_ = hurry; }
  bool hurries() const { return hurry_; }
  // Seconds that the last request was given for its connection.
  int patience() const { return patience_; }
  // Whether the last request gave the server a file.
  bool uploads() const { return uploaded_ != nullptr; }

  // An option of the next requests. Set what all requests have in common first.
  template <typename Value>
  void Set(CURLoption option, Value value) {
    if (curl_easy_setopt(handle_.get(), option, value) != CURLE_OK) options_taken_ = false;
  }
  // `connect_timeout` in seconds; `slow`: the server may work for long before it answers.
  void SetCommon(const std::string& url, const char* protocols, int connect_timeout,
                 bool slow = false);
  // Only servers whose certificate is good. `ca_file` has those to trust; empty for
  // the system's.
  void SetTls(const std::string& ca_file);
  void SetUpload(Flow* flow);
  // For what the server has only to send, or can answer at once.
  void SetPrompt();
  // False when an option was not taken since SetCommon. It might have been the one
  // that checks the server.
  [[nodiscard]] bool AreOptionsTaken() const { return options_taken_; }

  void Perform(Outcome* outcome);

 private:
  struct CleanUp {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  };
  struct CleanUpDriver {
    void operator()(CURLM* driver) const { (void)curl_multi_cleanup(driver); }
  };

  CURLcode Drive();

  bool options_taken_ = true;
  bool hurry_ = false;
  long quiet_limit_ = 0;  // seconds in which nothing comes or goes
  int patience_ = 0;
  const Flow* uploaded_ = nullptr;
  std::string server_;  // of the last request
  Flow* watched_ = nullptr;
  // Holds the connections, so it outlives the handle that uses them.
  std::unique_ptr<CURLM, CleanUpDriver> driver_;
  std::unique_ptr<CURL, CleanUp> handle_;
};

}  // namespace TAVOCloud
