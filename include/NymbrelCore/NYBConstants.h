// NYBConstants: the library's exported constants, one section per subsystem.
//
// Texts are std::string_view literals and unit words are unsigned 64-bit
// integers (the platform's word width), all compile-time constants that any
// thread may read. The two version symbols are exported C data defined in the
// library itself, so that code built against it can read them by name.
#pragma once

#include "NymbrelCore/NYBExport.h"

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

// ---- Library identity ------------------------------------------------------

// The library's numeric version: 1.0.
extern "C" NYB_EXPORT const double NymbrelCoreVersionNumber;
// The library's version text, zero-terminated:
// "@(#)PROGRAM:NymbrelCore  PROJECT:NymbrelCore-1\n".
extern "C" NYB_EXPORT const unsigned char NymbrelCoreVersionString[];

namespace nyb {

// ---- Records ---------------------------------------------------------------

// The units in which record fields are stored (each the unit numbered 0).
inline constexpr std::uint64_t kNYBStandardWeightUnit = 0;       // kilograms
inline constexpr std::uint64_t kNYBStandardGlucoseUnit = 0;      // mg/dL
inline constexpr std::uint64_t kNYBStandardTemperatureUnit = 0;  // Celsius
// A caller's marker for a value that has no unit; no record operation treats
// it specially.
inline constexpr std::uint64_t kNYBNoUnitFlag = std::numeric_limits<std::uint64_t>::max();

// The extras entry holding a record's raw measurements, and the two keys of
// one raw measurement.
inline constexpr std::string_view kNYBRawDataKey = "raw_data";
inline constexpr std::string_view kNYBRawDataValueKey = "value";
inline constexpr std::string_view kNYBRawDataUnitKey = "unit";

// The intermediarySource of records that came through the platform's health
// store.
inline constexpr std::string_view kNYBIntermediarySourceAppleHealth = "NymbrelMobile Apple Health";

}  // namespace nyb

namespace nyb {

// ---- Service access --------------------------------------------------------

// The header that carries the interface version of the service, and its value.
inline constexpr std::string_view kNYBNymbrelVersionHeader = "Nymbrel-Version";
inline constexpr std::string_view kNYBNymbrelVersionValue = "2015-10-01";
// The header that carries the user's access token.
inline constexpr std::string_view kNYBNymbrelAuthV2 = "X-Nymbrel-Mobile-Token";
// The domain of errors made from an HTTP status of 400 or above; the code is
// the status.
inline constexpr std::string_view kNYBHTTPErrorDomain = "NYBHTTPErrorDomain";
// The domain of the API client's own errors (NYBAPIErrorCode).
inline constexpr std::string_view kNYBAPIErrorDomain = "NYBAPIErrorDomain";

// The service's mobile API base URL (its path is "/v1"), fixed when the
// library is built (the CMake cache variable NYB_BASE_URL). The library reads
// nothing from the environment: a host or a test that talks to another
// service (a development server, say) says so with NYBSetRequestBaseURL().
// Reads like a string constant, from any thread:
//   std::string url = std::string(kNYBRequestBaseURLString) + "/organizations/...";
struct NYB_EXPORT NYBRequestBaseURL {
  std::string value() const;
  operator std::string() const { return value(); }  // NOLINT(runtime/explicit)
};
inline constexpr NYBRequestBaseURL kNYBRequestBaseURLString{};

// Points every request made after the call at another base URL, such as a
// development server's "http://127.0.0.1:41873/v1". Only https is accepted,
// and plain http only to a loopback host (127.0.0.0/8, ::1, localhost), so
// the user's token never crosses a network in clear text; anything else
// raises NYBInvalidArgumentException and leaves the base URL as it was. Any
// thread; requests already sent keep the URL they were made with.
NYB_EXPORT void NYBSetRequestBaseURL(std::string_view url);

}  // namespace nyb

namespace nyb {

// ---- Session ---------------------------------------------------------------

// The domain of the session's own errors (NYBSessionErrorCode).
inline constexpr std::string_view kNYBSessionErrorDomain = "NYBSessionErrorDomain";
// A record was accepted; the object is the record as the service returned it.
inline constexpr std::string_view kNYBRecordSubmittedNotification =
    "kNYBRecordSubmittedNotification";
// The service refused a record (HTTP 400 to 499) and it was dropped; the
// object is the queued record, the user information holds the error under
// "error".
inline constexpr std::string_view kNYBRecordSubmissionFailedNotification =
    "kNYBRecordSubmissionFailedNotification";
// A photo was uploaded; the object is its record with the returned media added.
inline constexpr std::string_view kNYBRecordImageSubmittedNotification =
    "kNYBRecordImageSubmittedNotification";
// A photo was refused (HTTP 400 to 499) or could not be read back and was
// dropped; the object is its record, the error is under "error".
inline constexpr std::string_view kNYBRecordImageSubmissionFailedNotification =
    "kNYBRecordImageSubmissionFailedNotification";

// Posted on the default notification centre when a reachability monitor's
// target changes; the object is the monitor, there is no user information.
inline constexpr std::string_view kReachabilityChangedNotification =
    "kNetworkReachabilityChangedNotification";
// The directory, inside the documents directory, that holds the photos
// waiting to be uploaded.
inline constexpr std::string_view kNYBImageDirectory = "images";

}  // namespace nyb
