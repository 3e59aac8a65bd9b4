#include "Routes.h"

#include "Connections.h"
#include "Encoding.h"
#include "Json.h"
#include "Png.h"
#include "Records.h"

#include <cstdio>

namespace nyb::devserver {

namespace {

constexpr const char* kTokenHeader = "X-Nymbrel-Mobile-Token";
constexpr const char* kTokenKey = "authentication_token";
// Marks answers made by a fault, so the error handler leaves their (maybe empty) body alone.
constexpr const char* kFaultHeader = "X-Devserver-Fault";

const std::string kUserPath = R"(/v1/organizations/([^/]+)/users/([^/]+))";

enum class Body { None, Required, Optional };

void answer(httplib::Response& response, int status, std::string body) {
  response.status = status;
  response.set_content(std::move(body), kJsonContentType);
}

void fail(httplib::Response& response, int status, std::string_view message) {
  answer(response, status, errorsBody(status, message));
}

std::string wrap(std::string_view root, std::string_view json) {
  std::string body;
  body.reserve(root.size() + json.size() + 5);
  body.append("{\"").append(root).append("\":").append(json).append("}");
  return body;
}

std::string percentDecode(std::string_view text) {
  auto hex = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hex(text[i + 1]) >= 0 && hex(text[i + 2]) >= 0) {
      out += static_cast<char>(hex(text[i + 1]) * 16 + hex(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

// The activity ID of an upsert, from the raw request target: clients leave "/", "?", "&" and
// "=" unencoded in it, so it is everything after ".../{root}/activity_id/", query included.
std::string upsertActivityID(const httplib::Request& request) {
  std::string_view target = request.target;
  size_t position = 0;
  for (int slash = 0; slash < 8; ++slash) {
    position = target.find('/', position);
    if (position == std::string_view::npos) return {};
    ++position;
  }
  return percentDecode(target.substr(position));
}

bool isJsonContent(const httplib::Request& request) {
  auto type = request.get_header_value("Content-Type");
  return type.rfind("application/json", 0) == 0;
}

// The single record under the root of a PUT body, checked; false once answered.
bool singleRecord(const std::string& root, rapidjson::Document& body, httplib::Response& response,
                  rapidjson::Document& record) {
  auto payload = member(body, root.c_str());
  if (payload == nullptr || !payload->IsObject()) {
    fail(response, 400, "the body needs a \"" + root + "\" object");
    return false;
  }
  record.CopyFrom(*payload, record.GetAllocator());
  if (auto problem = checkRecord(record)) {
    answer(response, problem->status, errorsBody({problem->entry}));
    return false;
  }
  return true;
}

}  // namespace

struct Routes::Call {
  Call(const httplib::Request& request, httplib::Response& response)
      : request(request), response(response) {}

  const httplib::Request& request;
  httplib::Response& response;
  std::string organization;
  std::string userID;
  std::string root;
  std::string itemID;  // record ID or activity ID, where the path has one
  const User* user = nullptr;
  rapidjson::Document body;

  Collection collection() const { return {organization, userID, root}; }
};

Routes::Routes(Store& store, const Users& users, Faults& faults, std::string baseURL)
    : store_(store), users_(users), faults_(faults), baseURL_(std::move(baseURL)) {}

httplib::Server::Handler Routes::guarded(httplib::Server::Handler handler) {
  return [this, handler = std::move(handler)](const httplib::Request& request,
                                              httplib::Response& response) {
    if (auto fault = faults_.take(request.method)) {
      if (fault->delay.count() > 0 && !faults_.wait(fault->delay)) {
        fault->kind = FaultAction::Kind::Close;  // stopping: do not serve a late request
      }
      switch (fault->kind) {
        case FaultAction::Kind::Close:
          response.status = 500;
          response.set_header(kFaultHeader, "close");
          if (!closeWithoutAnswer(request)) {
            std::fprintf(stderr, "nymbrel-devserver: connection to close not found\n");
          }
          return;
        case FaultAction::Kind::Answer:
          response.status = fault->status;
          response.set_header(kFaultHeader, "status");
          if (!fault->body.empty()) response.set_content(fault->body, fault->contentType.c_str());
          return;
        case FaultAction::Kind::Serve:
          break;
      }
    }
    handler(request, response);
  };
}

void Routes::install(httplib::Server& server) {
  auto route = [this](void (Routes::*method)(Call&), Body body) {
    return guarded(
        [this, method, body](const httplib::Request& request, httplib::Response& response) {
          Call call{request, response};
          call.organization = request.matches[1];
          call.userID = request.matches[2];
          call.root = request.matches[3];
          if (request.matches.size() > 4) call.itemID = request.matches[4];
          bool parse = body == Body::Required || (body == Body::Optional && !request.body.empty());
          if (begin(call, parse)) (this->*method)(call);
        });
  };
  const std::string collection = kUserPath + R"(/([^/]+)\.json)";
  const std::string item = kUserPath + R"(/([^/]+)/([^/]+)\.json)";
  const std::string activity = kUserPath + R"(/([^/]+)/activity_id/(.*))";
  const std::string mediaUpload = kUserPath + R"(/([^/]+)/([^/]+)/media)";

  server.Post(collection, route(&Routes::create, Body::Required));
  server.Get(collection, route(&Routes::list, Body::None));
  server.Put(activity, route(&Routes::upsert, Body::Required));
  server.Get(item, route(&Routes::read, Body::None));
  server.Put(item, route(&Routes::update, Body::Required));
  server.Delete(item, route(&Routes::remove, Body::Optional));
  server.Post(mediaUpload, route(&Routes::upload, Body::None));
  server.Get(R"(/v1/media/([0-9a-f]{24})\.png)",
             guarded([this](const httplib::Request& request, httplib::Response& response) {
               media(request, response);
             }));

  // Every other /v1 request still meets the faults before its 404.
  auto unknown = guarded([](const httplib::Request& request, httplib::Response& response) {
    fail(response, 404, "no such endpoint: " + request.method + " " + request.path);
  });
  server.Get(R"(/v1/.*)", unknown);
  server.Post(R"(/v1/.*)", unknown);
  server.Put(R"(/v1/.*)", unknown);
  server.Delete(R"(/v1/.*)", unknown);
  server.Patch(R"(/v1/.*)", unknown);

  server.Get("/health", [this](const httplib::Request& request, httplib::Response& response) {
    answer(response, 200,
           std::string("{\"status\":\"ok\",\"records\":") + std::to_string(store_.recordCount()) +
               ",\"tcp_nodelay\":" + (hasNoDelay(request) ? "true" : "false") + "}");
  });
  server.Get("/control/faults", [this](const httplib::Request&, httplib::Response& response) {
    answer(response, 200, faults_.describe());
  });
  server.Delete("/control/faults", [this](const httplib::Request&, httplib::Response& response) {
    faults_.clear();
    answer(response, 200, faults_.describe());
  });
  server.Post("/control/faults",
              [this](const httplib::Request& request, httplib::Response& response) {
                rapidjson::Document json;
                std::string error;
                if (!parseJson(request.body, json, error)) return fail(response, 400, error);
                std::vector<FaultRule> rules;
                try {
                  if (json.IsArray()) {
                    for (const auto& rule : json.GetArray()) rules.push_back(parseFaultRule(rule));
                  } else {
                    rules.push_back(parseFaultRule(json));
                  }
                } catch (const std::invalid_argument& e) {
                  return fail(response, 400, e.what());
                }
                for (const auto& rule : rules) faults_.add(rule);
                answer(response, 201, faults_.describe());
              });

  server.set_post_routing_handler(encodeAnswer);
  server.set_error_handler(httplib::Server::HandlerWithResponse(
      [](const httplib::Request&, httplib::Response& response) {
        if (!response.body.empty() || response.has_header(kFaultHeader)) {
          return httplib::Server::HandlerResponse::Unhandled;
        }
        std::string message = response.status == 404 ? "no such endpoint"
                              : response.status == 400
                                  ? "malformed HTTP request"
                                  : "request failed with status " + std::to_string(response.status);
        fail(response, response.status, message);
        return httplib::Server::HandlerResponse::Handled;
      }));
  server.set_exception_handler(
      [](const httplib::Request&, httplib::Response& response, std::exception_ptr error) {
        std::string message = "internal error";
        try {
          std::rethrow_exception(error);
        } catch (const std::exception& e) {
          message = e.what();
        } catch (...) {
        }
        fail(response, 500, message);
      });
}

bool Routes::begin(Call& call, bool parseBody) {
  const auto& request = call.request;
  auto& response = call.response;
  if (!isRecordRoot(call.root)) {
    fail(response, 404, "unknown record root \"" + call.root + "\"");
    return false;
  }
  call.user = users_.find(call.organization, call.userID);
  if (call.user == nullptr) {
    fail(response, 401, "unknown user " + call.userID + " of organization " + call.organization);
    return false;
  }
  bool presented = false;
  auto accept = [&](std::string_view token, const char* where) {
    presented = true;
    if (token == call.user->token) return true;
    fail(response, 401, std::string("the ") + where + " does not match the user's token");
    return false;
  };
  for (size_t i = 0; i < request.get_header_value_count(kTokenHeader); ++i) {
    if (!accept(request.get_header_value(kTokenHeader, i), "X-Nymbrel-Mobile-Token header")) {
      return false;
    }
  }
  for (size_t i = 0; i < request.get_param_value_count(kTokenKey); ++i) {
    if (!accept(request.get_param_value(kTokenKey, i), "authentication_token query item")) {
      return false;
    }
  }
  if (parseBody) {
    std::string error;
    if (!isJsonContent(request)) {
      fail(response, 400, "the body must be JSON, with Content-Type application/json");
      return false;
    }
    if (!parseJson(request.body, call.body, error)) {
      fail(response, 400, error);
      return false;
    }
    if (!call.body.IsObject()) {
      fail(response, 400, "the body must be a JSON object");
      return false;
    }
    if (auto token = member(call.body, kTokenKey)) {
      std::string_view text = token->IsString() ? token->GetString() : "";
      if (!accept(text, "authentication_token in the body")) return false;
    }
  }
  if (!presented) {
    fail(response, 401, "no authentication_token: send it as a header, query item or body key");
    return false;
  }
  return true;
}

void Routes::create(Call& call) {
  auto payload = member(call.body, call.root.c_str());
  if (payload == nullptr || !(payload->IsObject() || payload->IsArray())) {
    return fail(call.response, 400,
                "the body needs a \"" + call.root + "\" object or array of objects");
  }
  bool several = payload->IsArray();
  std::vector<rapidjson::Document> records;
  if (several) {
    if (payload->Empty()) return fail(call.response, 400, "the record array is empty");
    for (auto& element : payload->GetArray()) {
      records.emplace_back().CopyFrom(element, records.back().GetAllocator());
    }
  } else {
    records.emplace_back().CopyFrom(*payload, records.back().GetAllocator());
  }
  // All or nothing: malformed records (400) first, then timestamp problems (422).
  std::vector<ErrorEntry> malformed, unprocessable;
  for (const auto& record : records) {
    if (auto problem = checkRecord(record)) {
      (problem->status == 400 ? malformed : unprocessable).push_back(problem->entry);
    }
  }
  if (!malformed.empty()) return answer(call.response, 400, errorsBody(malformed));
  if (!unprocessable.empty()) return answer(call.response, 422, errorsBody(unprocessable));

  auto now = currentTimestamp();
  std::vector<RecordRow> rows;
  for (auto& record : records) {
    auto id = newObjectID();
    stampRecord(record, id, now, nullptr);
    rows.push_back(RecordRow{id, activityIDOf(record), toJson(record)});
  }
  store_.insert(call.collection(), rows);
  if (!several) return answer(call.response, 201, wrap(call.root, rows.front().json));
  std::string list = "[";
  for (size_t i = 0; i < rows.size(); ++i) list += (i > 0 ? "," : "") + rows[i].json;
  answer(call.response, 201, wrap(call.root, list + "]"));
}

void Routes::list(Call& call) {
  std::string list = "[";
  bool first = true;
  for (const auto& row : store_.list(call.collection())) {
    list += (first ? "" : ",") + row.json;
    first = false;
  }
  answer(call.response, 200, wrap(call.root, list + "]"));
}

void Routes::read(Call& call) {
  auto row = store_.find(call.collection(), call.itemID);
  if (!row) return fail(call.response, 404, "no " + call.root + " record with _id " + call.itemID);
  answer(call.response, 200, wrap(call.root, row->json));
}

void Routes::update(Call& call) {
  rapidjson::Document record;
  if (!singleRecord(call.root, call.body, call.response, record)) return;
  std::lock_guard lock(writes_);
  auto existing = store_.find(call.collection(), call.itemID);
  if (!existing) {
    return fail(call.response, 404, "no " + call.root + " record with _id " + call.itemID);
  }
  auto media = mediaOf(existing->json);
  stampRecord(record, call.itemID, currentTimestamp(), &media);
  RecordRow row{call.itemID, activityIDOf(record), toJson(record)};
  store_.put(call.collection(), row);
  answer(call.response, 200, wrap(call.root, row.json));
}

void Routes::upsert(Call& call) {
  auto activityID = upsertActivityID(call.request);
  if (activityID.empty()) return fail(call.response, 400, "the path has no activity ID");
  rapidjson::Document record;
  if (!singleRecord(call.root, call.body, call.response, record)) return;
  auto own = activityIDOf(record);
  if (own && *own != activityID) {
    return fail(
        call.response, 400,
        "the record's activity_id \"" + *own + "\" is not the path's \"" + activityID + "\"");
  }
  if (!own) {
    record.AddMember("activity_id", rapidjson::Value(activityID.c_str(), record.GetAllocator()),
                     record.GetAllocator());
  }
  std::lock_guard lock(writes_);
  auto existing = store_.findByActivity(call.collection(), activityID);
  auto id = existing ? existing->id : newObjectID();
  auto media = existing ? mediaOf(existing->json) : rapidjson::Document();
  stampRecord(record, id, currentTimestamp(), existing ? &media : nullptr);
  RecordRow row{id, activityID, toJson(record)};
  store_.put(call.collection(), row);
  answer(call.response, existing ? 200 : 201, wrap(call.root, row.json));
}

void Routes::remove(Call& call) {
  std::lock_guard lock(writes_);
  auto existing = store_.find(call.collection(), call.itemID);
  if (!existing || !store_.remove(call.collection(), call.itemID)) {
    return fail(call.response, 404, "no " + call.root + " record with _id " + call.itemID);
  }
  std::string body = "{\"code\":200,\"message\":\"Record deleted\"";
  if (existing->activityID) body += ",\"activity_id\":" + jsonString(*existing->activityID);
  answer(call.response, 200, body + "}");
}

void Routes::upload(Call& call) {
  const auto& request = call.request;
  if (!store_.find(call.collection(), call.itemID)) {
    return fail(call.response, 404, "no " + call.root + " record with _id " + call.itemID);
  }
  if (!request.is_multipart_form_data() || !request.has_file("media")) {
    return fail(call.response, 400, "expected a multipart/form-data body with a \"media\" part");
  }
  auto part = request.get_file_value("media");
  std::string error;
  if (!inspectPng(part.content, error)) return fail(call.response, 400, error);

  auto mediaID = newObjectID();
  auto url = baseURL_ + "/media/" + mediaID + ".png";
  std::lock_guard lock(writes_);
  auto record = store_.find(call.collection(), call.itemID);
  if (!record) {
    return fail(call.response, 404, "no " + call.root + " record with _id " + call.itemID);
  }
  store_.putMedia(MediaRow{mediaID, call.organization, call.userID, call.itemID, part.content});
  record->json = appendMedia(record->json, mediaID, url);
  store_.put(call.collection(), *record);
  answer(call.response, 201,
         "{\"media\":{\"id\":" + jsonString(mediaID) + ",\"url\":" + jsonString(url) + "}}");
}

void Routes::media(const httplib::Request& request, httplib::Response& response) {
  auto row = store_.media(request.matches[1].str());
  if (!row) return fail(response, 404, "no such media");
  const User* owner = users_.find(row->organization, row->userID);
  bool presented = false;
  bool matches = owner != nullptr;
  for (size_t i = 0; i < request.get_param_value_count(kTokenKey); ++i) {
    presented = true;
    matches = matches && request.get_param_value(kTokenKey, i) == owner->token;
  }
  for (size_t i = 0; i < request.get_header_value_count(kTokenHeader); ++i) {
    presented = true;
    matches = matches && request.get_header_value(kTokenHeader, i) == owner->token;
  }
  if (!presented || !matches) {
    return fail(response, 401, "the media needs its owner's authentication_token");
  }
  response.status = 200;
  response.set_content(row->png, "image/png");
}

}  // namespace nyb::devserver
