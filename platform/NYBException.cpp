#include "NymbrelCore/NYBException.h"

namespace nyb {

NYBException::NYBException(std::string name, std::string reason)
    : name_(std::move(name)), reason_(std::move(reason)) {}

NYBUnknownKeyException::NYBUnknownKeyException(std::string reason)
    : NYBException("NSUnknownKeyException", std::move(reason)) {}

NYBInvalidArgumentException::NYBInvalidArgumentException(std::string reason)
    : NYBException("NSInvalidArgumentException", std::move(reason)) {}

NYBDocumentsDirectoryInUseException::NYBDocumentsDirectoryInUseException(std::string directory)
    : NYBException("NYBDocumentsDirectoryInUseException", "another process is using " + directory),
      directory_(std::move(directory)) {}

}  // namespace nyb
