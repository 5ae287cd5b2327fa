#pragma once

#include <QUuid>

namespace Orv::Common::Communication::Notification::Format {

namespace System::Update {
// Asks the service to fetch and install a build; message member BuildUrl.
inline const QUuid Type{0x9ca3a0dc, 0x8a9f, 0x4a9e, 0x90, 0x55, 0x31, 0xfe, 0xf7, 0x5f, 0x8a, 0x36};
inline constexpr char BuildUrl[] = "BuildUrl";
// The size in bytes and the SHA-256 (hexadecimal) the feed gave for the build:
// a download that does not match them is never offered.
inline constexpr char Size[] = "Size";
inline constexpr char Sha256[] = "Sha256";
} // namespace System::Update

namespace System::UpdateProgress {
inline const QUuid Type{0x6dbbcbe8, 0x84ba, 0x4eec, 0x83, 0xd9, 0x8b, 0xa1, 0x69, 0x88, 0x46, 0xf5};
inline constexpr char Error[] = "Error";
inline constexpr char Message[] = "Message";
inline constexpr char Count[] = "Count";
inline constexpr char Size[] = "Size";
} // namespace System::UpdateProgress

namespace SslStorageChange {
// The trusted-certificate store changed; message member Pem holds the whole
// store as PEM text.
inline const QUuid Type{0x37cdd3dc, 0xb98b, 0x44ab, 0x96, 0xf0, 0x44, 0xfc, 0x10, 0xbb, 0x51, 0x50};
inline constexpr char Pem[] = "pem";
} // namespace SslStorageChange

} // namespace Orv::Common::Communication::Notification::Format
