#include "kelCloud/Signature.h"
#include "kelCloud/Types.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Kel::Cloud;
using Kel::Cloud::Info::AmazonS3Like::Signature;

TEST(CloudTypes, NamesAndValuesRoundTripAndStayWhereTheyAre)
{
    // The stored integer values and names other programs already hold.
    const QList<QPair<int, QString>> fixed{
        {1, "FileSystem"},
        {2, "AmazonS3"},
        {11, "S3Compatible"},
        {20, "AmazonS3Chinese"},
        {21, "Minio"},
        {29, "Wasabi"},
        {30, "AlibabaCloud"},
        {31, "BackBlaze"},
        {33, "Sftp"},
        {34, "Wasabi (UB)"},
        {35, "Wasabi (UB) Stage"},
        {36, "Wasabi Stage"},
        {37, "AmazonS3 (UB)"},
        {38, "TARN_CLOUD"},
    };
    for (const auto& entry : fixed) {
        EXPECT_EQ(typeName(typeFromValue(entry.first)), entry.second) << entry.first;
        EXPECT_EQ(static_cast<int>(typeFromName(entry.second)), entry.first)
            << entry.second.toStdString();
    }
    EXPECT_EQ(TypeName().size(), 37);
    for (auto it = TypeName().cbegin(); it != TypeName().cend(); ++it) {
        EXPECT_EQ(typeFromName(it.value()), it.key());
        EXPECT_EQ(typeFromValue(static_cast<int>(it.key())), it.key());
    }
    for (int gap : {0, 32, 39, -1})
        EXPECT_EQ(typeFromValue(gap), Type::Unknown) << gap;
    for (const char* near : {"filesystem", "AmazonS3 ", "Wasabi(UB)", "", "Unknown"})
        EXPECT_EQ(typeFromName(QString::fromLatin1(near)), Type::Unknown) << near;
}

TEST(CloudTypes, DeprecatedSetLeavesEveryCreatableTypeOut)
{
    const QSet<Type> creatable{Type::AmazonS3,     Type::Wasabi,        Type::AmazonS3Chinese,
                               Type::S3Compatible, Type::Minio,         Type::AlibabaCloud,
                               Type::AzureBlob,    Type::GoogleStorage, Type::BackBlaze,
                               Type::FileSystem,   Type::Sftp};
    for (Type type : creatable)
        EXPECT_FALSE(DepricatedTypes().contains(type)) << typeName(type).toStdString();
    for (Type type :
         {Type::Rackspace, Type::Openstack, Type::HPCloud, Type::WasabiUBStage, Type::AmazonS3UB})
        EXPECT_TRUE(DepricatedTypes().contains(type)) << typeName(type).toStdString();
}

TEST(CloudTypes, SignatureVersionsMatchExactly)
{
    EXPECT_EQ(Signature::SignatureVersionName().value(Signature::AWS2), "AWS2");
    EXPECT_EQ(Signature::SignatureVersionName().value(Signature::AWS4), "AWS4");
    EXPECT_EQ(static_cast<int>(Signature::SignatureVersionValue().value("AWS2")), 0);
    EXPECT_EQ(static_cast<int>(Signature::SignatureVersionValue().value("AWS4")), 1);
    for (const char* text : {"aws4", "Aws2", "AWS4 ", "4", ""})
        EXPECT_FALSE(Signature::SignatureVersionValue().contains(QString::fromLatin1(text)))
            << text;
}
