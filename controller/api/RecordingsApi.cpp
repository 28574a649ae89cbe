// Recordings of the machine's signals: files of the state folder, by their names.
#include "controller/api/Api.h"
#include "controller/api/Asked.h"
#include "controller/api/Body.h"
#include "controller/process/RealTime.h"
#include "controller/process/StateFolder.h"
#include "controller/recordings/Recordings.h"
#include "ixocamglue/support/Lists.h"

namespace ixocontroller {
namespace {

using TJson = nlohmann::ordered_json;

constexpr std::uint64_t kMostPoints = 20'000;

TJson RunningJson(TRecordings& recordings) {
  const auto now = recordings.Now();
  if (!now) return nullptr;
  return {{"name", now->Name}, {"signals", now->Signals}, {"limitMs", now->LimitMs}, {"recordedMs", now->Ms}};
}

TApiReply ListRecordings(TService& service, const TApiRequest&) {
  TApiReply reply;
  reply.Later = [&service](const TApiAnswer& answer) {
    const auto list = std::make_shared<TJson>(TJson::array());
    const auto read = [list, folder = service.Options().StateFolder / kRecordingsFolder] {
      for (const TRecordingInfo& file : TRecordings::List(folder))
        list->push_back({{"name", file.Name}, {"bytes", file.Bytes}, {"changed", UtcText(file.UnixMs)}});
    };
    service.OnDisk(read, [&service, list, answer] {
      TApiReply listed;
      listed.Body = {{"recordings", std::move(*list)}, {"running", RunningJson(service.Recordings())}};
      answer(std::move(listed));
    });
  };
  return reply;
}

// Answered when `ask` is done.
TApiReply ReplyLater(std::function<void(TDiskDone)> ask, std::function<TApiReply(std::uint64_t)> replyOf) {
  TApiReply reply;
  reply.Later = [ask = std::move(ask), replyOf = std::move(replyOf)](const TApiAnswer& answer) {
    ask([answer, replyOf](std::uint64_t number, const std::exception_ptr& failed) {
      answer(failed ? Fail(failed) : replyOf(number));
    });
  };
  return reply;
}

TApiReply ReadRecording(TService& service, const TApiRequest& request) {
  TRecordingPart part{.Signals = QueryOf(request, "signals")};
  const auto number = [&](const char* name, std::uint64_t least, std::uint64_t most, std::uint64_t otherwise) {
    const std::string text = QueryOf(request, name);
    return text.empty() ? otherwise : WholeNumber(text, name, least, most);
  };
  constexpr std::uint64_t kLast = std::uint64_t{1} << 52U;
  part.FromMs = static_cast<std::int64_t>(number("fromMs", 0, kLast, 0));
  part.ToMs = static_cast<std::int64_t>(number("toMs", 0, kLast, kLast));
  part.Points = number("points", 1, kMostPoints, part.Points);
  auto read = TRecordings::Read(service.Options().StateFolder / kRecordingsFolder, request.Params.at("name"), part);
  if (!read) return Fail(404, read.Problem());
  TApiReply reply;
  reply.Body = std::move(*read);
  return reply;
}

TApiReply ReadRecordingFile(TService& service, const TApiRequest& request) {
  auto text = TRecordings::File(service.Options().StateFolder / kRecordingsFolder, request.Params.at("name"));
  if (!text) return Fail(404, text.Problem());
  TApiReply reply;
  reply.Text = *std::move(text);
  reply.ContentType = "text/csv";
  return reply;
}

TApiReply StartRecording(TService& service, const TApiRequest& request) {
  const TAskedBody body(request, {"name", "signals", "limitMs"});
  const std::string list = Joined(body.Texts("signals"), {}, ",");
  std::vector<TMonitorSignalKey> signals = ParseSignals(list).OrThrow(pbRequest);
  const std::uint64_t limitMs = body.Has("limitMs")
                                    ? static_cast<std::uint64_t>(body.Whole("limitMs", 1, TRecordings::kLongestMs))
                                    : TRecordings::kUsualMs;
  const std::string name = body.Text("name");
  CheckStoredName(name).OrThrow(pbRequest);
  return ReplyLater([&service, name, signals = std::move(signals),
                     limitMs](TDiskDone done) { service.Recordings().Start(name, signals, limitMs, std::move(done)); },
                    [&service](std::uint64_t) {
                      TApiReply reply;
                      reply.Status = 201;
                      reply.Body = RunningJson(service.Recordings());
                      return reply;
                    });
}

TApiReply StopRecording(TService& service, const TApiRequest& request) {
  const std::string& name = request.Params.at("name");
  return ReplyLater([&service, name](TDiskDone done) { service.Recordings().Stop(name, std::move(done)); },
                    [name](std::uint64_t samples) {
                      TApiReply reply;
                      reply.Body = {{"name", name}, {"samples", samples}};
                      return reply;
                    });
}

TApiReply DeleteRecording(TService& service, const TApiRequest& request) {
  const std::string& name = request.Params.at("name");
  return ReplyLater([&service, name](TDiskDone done) { service.Recordings().Delete(name, std::move(done)); },
                    [name](std::uint64_t) {
                      TApiReply reply;
                      reply.Body = {{"name", name}};
                      return reply;
                    });
}

constexpr TApiRoute kRecordingsRoutes[] = {
    {"GET", "/api/v1/recordings", roNone, false, true, &ListRecordings, "The recordings, and the one being made"},
    {"POST", "/api/v1/recordings", roOperator, false, true, &StartRecording, "Record signals of the machine"},
    {"GET", "/api/v1/recordings/{name}", roNone, false, false, &ReadRecording, "A recording's signals, thinned out",
     true},
    {"GET", "/api/v1/recordings/{name}/file", roNone, false, false, &ReadRecordingFile, "A recording as its file",
     true},
    {"DELETE", "/api/v1/recordings/{name}", roOperator, false, true, &DeleteRecording, "Delete a recording"},
    {"DELETE", "/api/v1/recordings/{name}/running", roOperator, false, true, &StopRecording, "End a recording"},
};

}  // namespace

std::span<const TApiRoute> RecordingsRoutes() { return kRecordingsRoutes; }

}  // namespace ixocontroller
