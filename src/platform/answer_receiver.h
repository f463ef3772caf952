#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/http_client.h"
#include "platform/temporary_file.h"

namespace msp {

/// Takes an answer's body piece by piece, and hands what became of it to whoever asked; a completion that
/// throws costs a line in the event log. One thread at a time.
class AnswerReceiver {
 public:
  virtual ~AnswerReceiver() = default;

  /// An attempt begins: forgets what an earlier one brought. Otherwise the reason why it cannot.
  [[nodiscard]] virtual std::optional<FileError> begin() = 0;
  /// More of the body. Otherwise the reason why it cannot be taken; the attempt has failed then.
  [[nodiscard]] virtual std::optional<FileError> receive(std::string_view bytes) = 0;
  /// The body is complete: calls the completion.
  virtual void succeed(int status) = 0;
  /// There will be no answer: forgets the body and calls the completion.
  virtual void fail(std::string error) = 0;
};

/// Keeps the body in memory, up to a limit.
class MemoryReceiver : public AnswerReceiver {
 public:
  /// The most bytes a body may have, after decoding.
  static constexpr std::size_t kLargestBody = std::size_t{64} * 1024 * 1024;

  explicit MemoryReceiver(HttpClient::Completion completion);

  [[nodiscard]] std::optional<FileError> begin() override;
  [[nodiscard]] std::optional<FileError> receive(std::string_view bytes) override;
  void succeed(int status) override;
  void fail(std::string error) override;

 private:
  HttpClient::Completion completion_;
  std::string body_;
};

/// Writes the body to a temporary file, of whatever size.
class FileReceiver : public AnswerReceiver {
 public:
  /// `directory` is where the file is created.
  FileReceiver(std::string directory, HttpClient::DownloadCompletion completion);

  [[nodiscard]] std::optional<FileError> begin() override;
  [[nodiscard]] std::optional<FileError> receive(std::string_view bytes) override;
  void succeed(int status) override;
  void fail(std::string error) override;

 private:
  std::string directory_;
  HttpClient::DownloadCompletion completion_;
  std::optional<OpenTemporaryFile> opened_;
};

}  // namespace msp
