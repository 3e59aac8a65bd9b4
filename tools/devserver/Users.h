// The users the devserver knows: organisation, user ID and access token.
//
// Contract: filled once at start-up from "--user ORG:USER:TOKEN" arguments and JSON users
// files, then only read (so any thread may call find without locking). A user is named by
// its organisation and user ID, which must be unique; every field must be non-empty.
// Malformed input throws std::invalid_argument with a message fit for the command line.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace nyb::devserver {

struct User {
  std::string organization;
  std::string userID;
  std::string token;
};

class Users {
 public:
  void add(User user);

  // "ORG:USER:TOKEN"; the token is everything after the second colon.
  void addArgument(std::string_view text);

  // {"users": [{"organization": "acme", "user_id": "u1", "token": "secret"}, ...]},
  // or the bare array.
  void addFromFile(const std::string& path);
  void addFromJson(std::string_view text);

  const User* find(std::string_view organization, std::string_view userID) const;
  size_t size() const { return users_.size(); }
  bool empty() const { return users_.empty(); }

 private:
  std::map<std::pair<std::string, std::string>, User, std::less<>> users_;
};

}  // namespace nyb::devserver
