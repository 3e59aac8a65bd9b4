// The endpoints of the devserver on one HTTP server.
//
// Contract. Under /v1, the service's REST interface ({org}/{uid} name a known user, {root}
// a record collection such as "weight"):
//   POST   /v1/organizations/{org}/users/{uid}/{root}.json        create one record or several
//   GET    /v1/organizations/{org}/users/{uid}/{root}.json        list the user's records
//   GET    /v1/organizations/{org}/users/{uid}/{root}/{id}.json   read one record
//   PUT    /v1/organizations/{org}/users/{uid}/{root}/{id}.json   replace a record (404 unknown)
//   DELETE /v1/organizations/{org}/users/{uid}/{root}/{id}.json   delete a record
//   PUT    /v1/organizations/{org}/users/{uid}/{root}/activity_id/{activity ID}   upsert
//   POST   /v1/organizations/{org}/users/{uid}/{root}/{id}/media  multipart PNG upload
//   GET    /v1/media/{media id}.png                               the uploaded image
// JSON bodies wrap records under their root beside "authentication_token"; answers wrap the
// stored records under the root. Every token a request carries (header
// "X-Nymbrel-Mobile-Token", query or body "authentication_token") must be the path user's,
// and at least one is needed: otherwise 401. Unknown root or record: 404. A body that is not
// the expected JSON: 400. Failures answer {"errors": [{"code", "message", "activity_id"?}]}.
// Fault rules (Faults.h) apply to every /v1 request before it is served.
// Outside /v1: GET /health, and GET/POST/DELETE /control/faults to list, add, clear faults.
#pragma once

#include "Faults.h"
#include "Store.h"
#include "Users.h"

#include <httplib.h>

#include <mutex>
#include <string>

namespace nyb::devserver {

class Routes {
 public:
  // `baseURL` is the server's own http://host:port/v1, the root of media URLs.
  Routes(Store& store, const Users& users, Faults& faults, std::string baseURL);

  void install(httplib::Server& server);

 private:
  struct Call;

  httplib::Server::Handler guarded(httplib::Server::Handler handler);
  bool begin(Call& call, bool parseBody);

  void create(Call& call);
  void list(Call& call);
  void read(Call& call);
  void update(Call& call);
  void upsert(Call& call);
  void remove(Call& call);
  void upload(Call& call);
  void media(const httplib::Request& request, httplib::Response& response);

  Store& store_;
  const Users& users_;
  Faults& faults_;
  std::string baseURL_;
  // Makes each read-then-write sequence (update, upsert, delete, upload) atomic.
  std::mutex writes_;
};

}  // namespace nyb::devserver
