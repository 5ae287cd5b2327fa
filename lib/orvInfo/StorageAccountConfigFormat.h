#pragma once

// Keys of the account-configuration format that commands beyond the account
// commands read and write (plans name their storage by them).
namespace Orv::Info::StorageAccountConfigFormat {

inline constexpr char AccountType[] = "AccountType";
inline constexpr char BackupPrefix[] = "BackupPrefix";
inline constexpr char Cloud[] = "Cloud";
inline constexpr char DisplayName[] = "DisplayName";
inline constexpr char FileSystem[] = "FileSystem";
inline constexpr char Tarn[] = "Tarn";
inline constexpr char Network[] = "Network";
inline constexpr char StorageId[] = "StorageId";
inline constexpr char UsedSpace[] = "UsedSpace";
inline constexpr char UsedSpaceFromLocalDb[] = "UsedSpaceFromLocalDb";

} // namespace Orv::Info::StorageAccountConfigFormat
