#include "Users.h"

#include "Json.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace nyb::devserver {

void Users::add(User user) {
  if (user.organization.empty() || user.userID.empty() || user.token.empty()) {
    throw std::invalid_argument("a user needs an organization, a user ID and a token");
  }
  auto key = std::make_pair(user.organization, user.userID);
  if (users_.count(key) != 0) {
    throw std::invalid_argument("user " + user.userID + " of organization " + user.organization +
                                " is given twice");
  }
  users_.emplace(std::move(key), std::move(user));
}

void Users::addArgument(std::string_view text) {
  auto first = text.find(':');
  auto second = first == std::string_view::npos ? first : text.find(':', first + 1);
  if (second == std::string_view::npos) {
    throw std::invalid_argument("--user expects ORG:USER:TOKEN, got \"" + std::string(text) + "\"");
  }
  add(User{std::string(text.substr(0, first)),
           std::string(text.substr(first + 1, second - first - 1)),
           std::string(text.substr(second + 1))});
}

void Users::addFromFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::invalid_argument("cannot read users file " + path);
  std::stringstream text;
  text << in.rdbuf();
  try {
    addFromJson(text.str());
  } catch (const std::invalid_argument& e) {
    throw std::invalid_argument(path + ": " + e.what());
  }
}

void Users::addFromJson(std::string_view text) {
  rapidjson::Document doc;
  std::string error;
  if (!parseJson(text, doc, error)) throw std::invalid_argument(error);
  const rapidjson::Value* list = &doc;
  if (doc.IsObject() && doc.HasMember("users")) list = &doc["users"];
  if (!list->IsArray()) {
    throw std::invalid_argument("expected {\"users\": [...]} or an array of users");
  }
  for (const auto& entry : list->GetArray()) {
    auto organization = stringMember(entry, "organization");
    auto userID = stringMember(entry, "user_id");
    auto token = stringMember(entry, "token");
    if (!organization || !userID || !token) {
      throw std::invalid_argument(
          "each user needs the strings \"organization\", \"user_id\" and \"token\"");
    }
    add(User{std::string(*organization), std::string(*userID), std::string(*token)});
  }
}

const User* Users::find(std::string_view organization, std::string_view userID) const {
  auto it = users_.find(std::make_pair(std::string(organization), std::string(userID)));
  return it == users_.end() ? nullptr : &it->second;
}

}  // namespace nyb::devserver
