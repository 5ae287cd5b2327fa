#pragma once

// Texts of the channel between the command line and the service. Both sides
// include this one header, so a member name is written exactly once.
//
// Every message is one frame (see Frame.h) holding one JSON object. Its "type"
// member says what it is:
//   "request"       named command:  command, id, session_id, connection_type, params
//   "reply"         its answer:     command, id, session_id, status ("success"|"error"),
//                                   error_string, data
//   "request_v2"    typed command:  command_id (UUID), id, session_id, request
//   "reply_v2"      its answer:     id, status (2 done, 3 failed, 5 try later),
//                                   error_message, response
//   "subscribe"     the client wants notifications pushed to it (no answer)
//   "notification"  either way:     data = {"notification_type": UUID, "message": {...}}
namespace Orv::Common::Communication::Commands::Format {

namespace Header {
inline constexpr char Command[] = "command";
inline constexpr char Id[] = "id";
inline constexpr char SessionId[] = "session_id";
namespace ConnectionType {
inline constexpr char key[] = "connection_type";
}
namespace Type {
inline constexpr char Key[] = "type";
inline constexpr char Request[] = "request";
inline constexpr char Reply[] = "reply";
inline constexpr char RequestV2[] = "request_v2";
inline constexpr char ReplyV2[] = "reply_v2";
inline constexpr char Subscribe[] = "subscribe";
inline constexpr char Notification[] = "notification";
} // namespace Type
inline constexpr char Params[] = "params";
inline constexpr char Data[] = "data";
namespace Status {
inline constexpr char Key[] = "status";
inline constexpr char ErrorString[] = "error_string";
namespace Value {
inline constexpr char Success[] = "success";
inline constexpr char Error[] = "error";
} // namespace Value
} // namespace Status
// Members of typed messages.
inline constexpr char CommandId[] = "command_id";
inline constexpr char TypedRequest[] = "request";
inline constexpr char TypedResponse[] = "response";
inline constexpr char ErrorMessage[] = "error_message";
// Members of a notification's data.
inline constexpr char NotificationType[] = "notification_type";
inline constexpr char NotificationMessage[] = "message";
} // namespace Header

namespace Storage::GetConnection {
inline constexpr char Name[] = "StorageGetConnection";
namespace Request {
inline constexpr char Profile[] = "profile";
}
namespace Reply {
inline constexpr char Key[] = "storageConnection";
inline constexpr char ID[] = "ID";
inline constexpr char DisplayName[] = "DisplayName";
inline constexpr char Path[] = "Path";
inline constexpr char Prefix[] = "Prefix";
inline constexpr char PrefixArray[] = "PrefixArray";
inline constexpr char Type[] = "Type";
inline constexpr char SpaceLimit[] = "SpaceLimit";
inline constexpr char SpaceUsed[] = "SpaceUsed";
inline constexpr char DetailParams[] = "DetailParams";
inline constexpr char SyncStatus[] = "SyncStatus";
// Beside the list: the account files the service could not read, each
// {"File": path, "Reason": text}; absent when there is none.
inline constexpr char Damaged[] = "DamagedFiles";
inline constexpr char DamagedFile[] = "File";
inline constexpr char DamagedReason[] = "Reason";
} // namespace Reply
} // namespace Storage::GetConnection

namespace Storage::DeleteFileSystem {
inline constexpr char Name[] = "StorageDeleteFileSystem";
namespace Request {
inline constexpr char ID[] = "ID";
inline constexpr char Profile[] = "profile";
} // namespace Request
} // namespace Storage::DeleteFileSystem

// The check of an account's storage before it is saved, run by the service
// so that the command line carries no storage backend: "operation" is "check"
// (connect, authenticate, container usable) or "list" (the containers), and
// "config" the account's configuration; the reply's "outcome" is the finished
// operation as the cloud library writes it.
namespace Storage::Check {
inline constexpr char Name[] = "StorageCheck";
namespace Request {
inline constexpr char Operation[] = "operation";
inline constexpr char Config[] = "config";
inline constexpr char CheckConfig[] = "check";
inline constexpr char ListContainers[] = "list";
} // namespace Request
namespace Reply {
inline constexpr char Outcome[] = "outcome";
}
} // namespace Storage::Check

namespace Storage::SynchronizeRepository {
inline constexpr char Name[] = "SynchronizeRepository";
namespace Request {
inline constexpr char Id[] = "id";
}
} // namespace Storage::SynchronizeRepository

// The trusted server-certificate store. Certificates travel as PEM text.
namespace Ssl {
inline constexpr char Pem[] = "pem";
inline constexpr char Success[] = "success";
namespace ReadFromStorage {
inline constexpr char Name[] = "ReadFromSslStorage";
namespace Reply {
inline constexpr char Certificates[] = "certificates";
}
} // namespace ReadFromStorage
namespace AppendToStorage {
inline constexpr char Name[] = "AppendToSslStorage";
}
namespace WriteToStorage {
inline constexpr char Name[] = "WriteToSslStorage";
}
namespace RemoveFromStorage {
inline constexpr char Name[] = "RemoveFromSslStorage";
}
namespace GetPeerCertificate {
inline constexpr char Name[] = "GetPeerSslCertificate";
namespace Request {
inline constexpr char Endpoint[] = "endpoint";
}
} // namespace GetPeerCertificate
} // namespace Ssl

// The whole configuration (settings, storage accounts, plans) written to or
// read from one file by the service, which alone can open the secrets it
// keeps. "passphrase" protects the secrets inside the file; like every
// parameter it is never logged.
namespace Config::Export {
inline constexpr char Name[] = "ExportConfiguration";
namespace Request {
inline constexpr char Profile[] = "profile";
inline constexpr char Path[] = "path";
inline constexpr char RemovePasswords[] = "removePasswords";
inline constexpr char ExcludedPlans[] = "excludedPlans";
inline constexpr char Passphrase[] = "passphrase";
} // namespace Request
namespace Reply {
inline constexpr char Error[] = "error";
inline constexpr char File[] = "file";
} // namespace Reply
} // namespace Config::Export

namespace Config::Import {
inline constexpr char Name[] = "ImportConfiguration";
namespace Request {
inline constexpr char Profile[] = "profile";
inline constexpr char FilePath[] = "filePath";
inline constexpr char ReplaceBackupPrefix[] = "replaceBackupPrefix";
inline constexpr char Passphrase[] = "passphrase";
} // namespace Request
namespace Reply {
// 0 failed (nothing changed), 1 partly imported, 2 imported.
inline constexpr char Result[] = "result";
inline constexpr char Message[] = "message";
inline constexpr char SettingsSize[] = "settingsSize";
inline constexpr char SettingsFailed[] = "settingsFailed";
inline constexpr char SettingsError[] = "settingsError";
inline constexpr char StorageSize[] = "storageSize";
inline constexpr char StorageFailed[] = "storageFailed";
inline constexpr char StorageError[] = "storageError";
inline constexpr char PlanSize[] = "planSize";
inline constexpr char PlanFailed[] = "planFailed";
inline constexpr char PlanError[] = "planError";
} // namespace Reply
} // namespace Config::Import

// The diagnostic bundle, written by the service: it alone reads what the
// bundle shows with its secrets hidden. "path" is where the archive goes (a
// file that must not exist yet); empty asks for a temporary archive, removed
// once it has been sent. The reply names the archive and what was left out.
namespace Diagnostics::SaveLogs {
inline constexpr char Name[] = "SaveDiagnosticLogs";
namespace Request {
inline constexpr char Path[] = "path";
inline constexpr char User[] = "user";
inline constexpr char Message[] = "message";
} // namespace Request
namespace Reply {
inline constexpr char Path[] = "path";
inline constexpr char Problems[] = "problems";
} // namespace Reply
} // namespace Diagnostics::SaveLogs

// The latest published build as the product-information feed describes it.
namespace System::ProductInformation {
inline constexpr char Name[] = "GetProductInformation";
namespace Reply {
inline constexpr char Version[] = "version";
inline constexpr char Url[] = "url";
inline constexpr char Size[] = "size";
inline constexpr char Sha256[] = "sha256";
} // namespace Reply
} // namespace System::ProductInformation

namespace System::UninstallNotification {
inline constexpr char Name[] = "UninstallNotification";
}

namespace Plan::GetList {
inline constexpr char Name[] = "PlanGetList";
namespace Request {
inline constexpr char Profile[] = "profile";
}
namespace Reply {
inline constexpr char Key[] = "planList";
}
} // namespace Plan::GetList

// Creates a plan, or replaces the plan with the same ID: "planXML" is the
// plan as the plan library writes it, with its passwords in clear (the
// service seals them before anything reaches the disk). The reply's data is
// empty.
namespace Plan::CommonEdit {
inline constexpr char Name[] = "CommonPlanEdit";
namespace Request {
inline constexpr char Profile[] = "profile";
inline constexpr char PlanXml[] = "planXML";
inline constexpr char ID[] = "ID";
} // namespace Request
} // namespace Plan::CommonEdit

namespace Plan::DataType::Info {
inline constexpr char ID[] = "ID";
inline constexpr char Name[] = "Name";
inline constexpr char Type[] = "Type";
inline constexpr char Storage[] = "Storage";
inline constexpr char PlanXml[] = "PlanXml";
} // namespace Plan::DataType::Info

} // namespace Orv::Common::Communication::Commands::Format
