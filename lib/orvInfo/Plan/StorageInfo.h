#pragma once

namespace Orv::Info::Plan {

// Storage options common to backup and restore plans. Only Amazon S3 accounts
// use them; on other accounts they are kept but have no effect.
class StorageInfo
{
public:
    // Amazon S3 Transfer Acceleration; off by default.
    bool useS3Accelerated() const { return m_useS3Accelerated; }
    void setUseS3Accelerated(bool use) { m_useS3Accelerated = use; }

private:
    bool m_useS3Accelerated = false;
};

} // namespace Orv::Info::Plan
