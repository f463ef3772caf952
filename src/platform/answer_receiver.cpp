#include "platform/answer_receiver.h"

#include <exception>
#include <utility>
#include <variant>

#include "platform/event_log.h"
#include "platform/file_calls.h"

namespace msp {
namespace {

FileError notWritten(const FileError& error) {
  return {"Cannot write the temporary file: " + error.description};
}

template <typename Result>
void complete(const std::function<void(Result)>& completion, Result result) {
  try {
    completion(std::move(result));
  } catch (const std::exception& error) {
    logEvent(std::string("Handling an HTTP answer failed: ") + error.what());
  } catch (...) {
    logEvent("Handling an HTTP answer failed: unknown error");
  }
}

}  // namespace

MemoryReceiver::MemoryReceiver(HttpClient::Completion completion) : completion_(std::move(completion)) {}

std::optional<FileError> MemoryReceiver::begin() {
  body_.clear();
  return std::nullopt;
}

std::optional<FileError> MemoryReceiver::receive(std::string_view bytes) {
  if (bytes.size() > kLargestBody - body_.size()) return FileError{"The answer is larger than 64 MiB."};
  body_.append(bytes);
  return std::nullopt;
}

void MemoryReceiver::succeed(int status) {
  complete(completion_, HttpResult{HttpAnswer{status, std::move(body_)}, ""});
}

void MemoryReceiver::fail(std::string error) {
  complete(completion_, HttpResult{std::nullopt, std::move(error)});
}

FileReceiver::FileReceiver(std::string directory, HttpClient::DownloadCompletion completion)
    : directory_(std::move(directory)), completion_(std::move(completion)) {}

std::optional<FileError> FileReceiver::begin() {
  opened_.reset();
  auto created = createTemporaryFile(directory_ + "/msp-agent-download.");
  if (const auto* error = std::get_if<FileError>(&created)) {
    return FileError{"Cannot create a temporary file: " + error->description};
  }
  opened_ = std::get<OpenTemporaryFile>(std::move(created));
  return std::nullopt;
}

std::optional<FileError> FileReceiver::receive(std::string_view bytes) {
  if (const auto error = writeAll(opened_->descriptor, bytes)) return notWritten(*error);
  return std::nullopt;
}

void FileReceiver::succeed(int /*status*/) {
  if (const auto error = closeWritten(std::move(opened_->descriptor))) {
    return fail(notWritten(*error).description);
  }
  complete(completion_, DownloadResult{std::move(opened_->file), ""});
}

void FileReceiver::fail(std::string error) {
  opened_.reset();
  complete(completion_, DownloadResult{std::nullopt, std::move(error)});
}

}  // namespace msp
