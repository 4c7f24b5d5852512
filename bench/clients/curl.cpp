// libcurl, a handle and its one connection on each thread, the message built by its MIME interface.
#include <curl/curl.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "Task.h"

namespace {

using kvbench::Task;

void Check(CURLcode code) {
    if (code != CURLE_OK) {
        std::fprintf(stderr, "curl: %s\n", curl_easy_strerror(code));
        std::_Exit(1);
    }
}

template <typename Value>
void Set(CURL* handle, CURLoption option, Value value) {
    Check(curl_easy_setopt(handle, option, value));
}

curl_mime* MakeMessage(CURL* handle, const Task& task, const std::string& text) {
    curl_mime* const message = curl_mime_init(handle);
    curl_mimepart* part = curl_mime_addpart(message);
    Check(curl_mime_data(part, text.data(), text.size()));
    Check(curl_mime_type(part, "text/plain"));
    if (!task.attachment.empty()) {
        part = curl_mime_addpart(message);
        Check(curl_mime_filedata(part, task.attachment.c_str()));
        Check(curl_mime_type(part, "application/octet-stream"));
        Check(curl_mime_encoder(part, "base64"));
    }
    return message;
}

void Deliver(const Task& task, std::atomic<int>& left) {
    CURL* const handle = curl_easy_init();
    curl_slist* recipients = nullptr;
    for (int i = 0; i < task.recipients; ++i) {
        recipients = curl_slist_append(recipients, kvbench::Recipient(i).c_str());
    }
    curl_slist* headers = curl_slist_append(nullptr, (std::string("From: ") + kvbench::kSender).c_str());
    headers = curl_slist_append(headers, (std::string("Subject: ") + kvbench::kSubject).c_str());
    Set(handle, CURLOPT_URL, ("smtp://127.0.0.1:" + std::to_string(task.port)).c_str());
    Set(handle, CURLOPT_NOSIGNAL, 1L);
    Set(handle, CURLOPT_MAIL_FROM, kvbench::kSender);
    Set(handle, CURLOPT_MAIL_RCPT, recipients);
    Set(handle, CURLOPT_HTTPHEADER, headers);
    if (!task.ca.empty()) {
        Set(handle, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
        Set(handle, CURLOPT_CAINFO, task.ca.c_str());
        Set(handle, CURLOPT_SSL_VERIFYHOST, 0L);  // as the driver does
    }
    const std::string text = kvbench::Text(task.text);
    while (left.fetch_sub(1) > 0) {
        curl_mime* const message = MakeMessage(handle, task, text);
        Set(handle, CURLOPT_MIMEPOST, message);
        Check(curl_easy_perform(handle));
        curl_mime_free(message);
    }
    curl_easy_cleanup(handle);
    curl_slist_free_all(headers);
    curl_slist_free_all(recipients);
}

}  // namespace

int main(int argc, char** argv) {
    const Task task = kvbench::ReadTask(argc, argv);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    std::atomic<int> left{task.messages};
    const kvbench::Meter meter;
    std::vector<std::thread> threads;
    for (int i = 0; i < task.connections; ++i) {
        threads.emplace_back([&] { Deliver(task, left); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    meter.Print();
}
