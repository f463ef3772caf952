#include <cerrno>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "jobs/jobs_manager.h"
#include "platform/background_pool.h"
#include "platform/file_move.h"
#include "platform/in_flight_limit.h"
#include "platform/url.h"

namespace msp {
namespace {

/// Each of them holds a connection and an open file; the check-ins must not run out of descriptors.
constexpr int kMostDownloads = 256;

/// What a download needs until its end.
struct Download {
  Job job;
  std::int64_t id;
  std::string fileName;
  std::function<void(JobResult)> completion;
  std::shared_ptr<const void> underWay;
};

/// Moves run here: one between two file systems copies the file, which can take minutes.
BackgroundPool& movers() {
  constexpr std::size_t kMostAtOnce = 16;
  static BackgroundPool pool("download-move", kMostAtOnce);
  return pool;
}

void endMove(const Download& download, const std::optional<FileError>& error) {
  if (error) {
    logJobProblem(download.job, "Download error: file not saved");
    return download.completion(failure(download.id, "Download Error: file not saved: " + error->description));
  }
  download.completion(
      {.id = download.id, .message = "File downloaded to " + download.fileName, .success = 1});
}

void moveFile(const Download& download, TemporaryFile file) {
  auto error = std::optional(FileError{std::generic_category().message(ENOMEM)});  // what an exception means
  try {
    error = moveWithoutOverwriting(std::move(file), download.fileName);
  } catch (const std::exception&) {
  }
  endMove(download, error);
}

/// On the HTTP client's thread: the move, which can take minutes, is left to others.
void endDownload(const std::shared_ptr<const Download>& download, DownloadResult result) {
  if (!result.error.empty()) {
    logJobProblem(download->job, "Download error: " + result.error);
    return download->completion(failure(download->id, "Download Error: " + result.error));
  }
  if (!result.file) {
    logJobProblem(download->job, "Download error: file not downloaded");
    return download->completion(failure(download->id, "Download Error: file not downloaded"));
  }
  const auto file = std::make_shared<TemporaryFile>(std::move(*result.file));
  const bool started = movers().submit([download, file] { moveFile(*download, std::move(*file)); });
  if (!started) endMove(*download, FileError{std::generic_category().message(EAGAIN)});
}

}  // namespace

void JobsManager::downloadFile(const Job& job, std::function<void(JobResult)> completion) const {
  static InFlightLimit downloads(kMostDownloads);
  const auto [id, arguments] = jobArguments(job);
  const auto fileName = arguments ? stringValue(*arguments, "file_name") : std::nullopt;
  const auto url = arguments ? stringValue(*arguments, "url") : std::nullopt;
  if (!fileName || !url || !isUrl(*url)) {
    logJobProblem(job, "Download Error: Invalid commands");
    return completion(failure(id, "Download Error: Invalid commands"));
  }
  // This only skips the check: no download ever replaces a file.
  const auto replaceExistingFile = stringValue(*arguments, "replace_existing_file").value_or("0");
  if (replaceExistingFile == "0" && host_->fileExists(*fileName)) {
    logJobProblem(job, "Download Error: File already exists");
    return completion(failure(id, "Download Error: File already exists"));
  }
  auto underWay = downloads.tryStart();
  if (!underWay) {
    logJobProblem(job, "Download error: too many downloads are under way");
    return completion(failure(id, "Download Error: too many downloads are under way"));
  }
  HttpRequest request;
  request.url = *url;
  http_->download(std::move(request),
                  [download = std::make_shared<const Download>(
                       Download{job, id, *fileName, std::move(completion), std::move(underWay)})](
                      DownloadResult result) { endDownload(download, std::move(result)); });
}

}  // namespace msp
