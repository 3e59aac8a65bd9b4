// NYBException: a failure that is raised and not caught (a programming error):
// an unknown property name, an invalid argument, a missing required parameter.
//
// Each carries the failure's name ("NSUnknownKeyException",
// "NSInvalidArgumentException", "Missing parameter exception", ...) and its
// reason; description() is the reason, as the platform's exception describes
// itself. Thrown by value and caught by reference.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <exception>
#include <string>

namespace nyb {

class NYB_EXPORT NYBException : public std::exception {
 public:
  NYBException(std::string name, std::string reason);
  const std::string& name() const { return name_; }
  const std::string& reason() const { return reason_; }
  const std::string& description() const { return reason_; }
  const char* what() const noexcept override { return reason_.c_str(); }

 private:
  std::string name_;
  std::string reason_;
};

// Setting or reading a name that is neither a property nor a field.
class NYB_EXPORT NYBUnknownKeyException : public NYBException {
 public:
  explicit NYBUnknownKeyException(std::string reason);
};

// An argument the operation cannot take (absent for a scalar, a value that
// cannot be archived, a JSON argument that is not a dictionary).
class NYB_EXPORT NYBInvalidArgumentException : public NYBException {
 public:
  explicit NYBInvalidArgumentException(std::string reason);
};

// Another process is using the documents directory (it holds the directory's
// lock file), so this one must not read or write the session's files there.
class NYB_EXPORT NYBDocumentsDirectoryInUseException : public NYBException {
 public:
  explicit NYBDocumentsDirectoryInUseException(std::string directory);
  const std::string& directory() const { return directory_; }

 private:
  std::string directory_;
};

}  // namespace nyb
