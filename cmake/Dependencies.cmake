# Every dependency is a Debian package installed by scripts/setup.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(CURL REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(PNG REQUIRED)
find_package(OpenSSL 3 REQUIRED COMPONENTS Crypto)
find_package(fmt REQUIRED)
find_package(Boost 1.74 REQUIRED)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)

# Dependencies the library uses privately; none appears in a public header.
# nyb_link_deps are the ones a program linking the static library needs too.
add_library(nyb_link_deps INTERFACE)
target_link_libraries(nyb_link_deps INTERFACE
  CURL::libcurl ICU::uc ICU::i18n PNG::PNG fmt::fmt PkgConfig::UUID OpenSSL::Crypto)
add_library(nyb_private_deps INTERFACE)
target_link_libraries(nyb_private_deps INTERFACE nyb_link_deps Boost::headers)
target_compile_definitions(nyb_private_deps INTERFACE MSGPACK_NO_BOOST RAPIDJSON_HAS_STDSTRING=1)
