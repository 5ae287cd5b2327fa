#pragma once

// Keys of an account configuration (a QVariantMap). The command line builds
// it from options, the service stores it (secrets encrypted), and the
// backends read it. Every value is text unless noted.
namespace Kel::Cloud::Config {

inline constexpr char Id[] = "Id";               // account UUID in braces
inline constexpr char Type[] = "Type";           // type name, see Types.h
inline constexpr char Container[] = "Container"; // bucket, container name or folder/path
inline constexpr char Endpoint[] = "Endpoint";   // host[:port] or URL of the service
inline constexpr char UseSsl[] = "UseSSL";       // "true" or "false"

// S3 family
inline constexpr char AccessKey[] = "AccessKey";
inline constexpr char SecretKey[] = "SecretKey";               // secret
inline constexpr char SignatureVersion[] = "SignatureVersion"; // 0 AWS2, 1 AWS4
inline constexpr char Region[] = "Region";

// Azure Blob
inline constexpr char AccountName[] = "AccountName";
inline constexpr char SharedKey[] = "SharedKey"; // secret
inline constexpr char AzureType[] = "AzureType";

// Backblaze B2
inline constexpr char KeyId[] = "KeyId";
inline constexpr char ApplicationKey[] = "ApplicationKey"; // secret

// Google Storage. AuthType is a name of GoogleAuth ("AccessKey": HMAC keys
// in AccessKey and SecretKey; "ServiceAcc": a service account's key file,
// JSON or PEM, in PrivateKey; "InstallApp": an installed application's
// authorisation code or refresh token).
inline constexpr char AuthType[] = "AuthType";
inline constexpr char ProjectId[] = "ProjectId";
inline constexpr char PrivateKey[] = "PrivateKey"; // secret (also SFTP's key text)
inline constexpr char ServiceEmail[] = "ServiceEmail";
inline constexpr char AuthCode[] = "AuthCode";         // secret
inline constexpr char RefreshToken[] = "RefreshToken"; // secret
// The OAuth client of installed-application accounts (the program's own
// when not given) and the token endpoint (Google's, or the key file's).
inline constexpr char OAuthClientId[] = "OAuthClientId";
inline constexpr char OAuthClientSecret[] = "OAuthClientSecret"; // secret
inline constexpr char OAuthRedirectUri[] = "OAuthRedirectUri";
inline constexpr char TokenUrl[] = "TokenUrl";

// SFTP
inline constexpr char User[] = "User";
inline constexpr char Password[] = "Password"; // secret
inline constexpr char Port[] = "Port";
inline constexpr char KeepAlive[] = "KeepAlive";
inline constexpr char UseProxy[] = "UseProxy";

// SFTP host keys: the known-hosts file in which a server's key is recorded
// the first time and checked against every time after. Without it host keys
// are accepted unchecked.
inline constexpr char KnownHostsFile[] = "KnownHostsFile";

// File system
inline constexpr char Path[] = "Path";

// The proxy, as plain values. Not stored with the account: the program adds
// them from its proxy record before it hands the configuration to the
// library, for SFTP only when UseProxy is on. ProxyType is "None", "Http" or
// "Socks5".
inline constexpr char ProxyType[] = "ProxyType";
inline constexpr char ProxyHost[] = "ProxyHost";
inline constexpr char ProxyPort[] = "ProxyPort";
inline constexpr char ProxyUser[] = "ProxyUser";
inline constexpr char ProxyPassword[] = "ProxyPassword"; // secret

// Requests the server asks to repeat (HTTP 429, 500, 502, 503, 504) are sent
// again this many times, first after this many milliseconds, each later wait
// doubled. Without them the network library's global configuration decides.
inline constexpr char RetryAttempts[] = "RetryAttempts";
inline constexpr char RetryInterval[] = "RetryInterval";

// Objects larger than this many bytes are uploaded in parts (blocks, chunks)
// of this size; 16 MiB when not given. Each backend says its bounds.
inline constexpr char PartSize[] = "PartSize";

// Keys whose values are secrets: encrypted at rest, masked when shown or logged.
inline constexpr const char* SecretKeys[] = {SecretKey,  SharedKey,     ApplicationKey,
                                             PrivateKey, AuthCode,      RefreshToken,
                                             Password,   ProxyPassword, OAuthClientSecret};

} // namespace Kel::Cloud::Config
