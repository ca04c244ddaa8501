// Requests the fuzz target found doing harm, each kept with what it must do now.
#include "tests/fixture.h"

namespace {

struct Finding {
    const char* what;
    std::string body;
    const char* file;  // must stay as it was
};

class FuzzFindings : public CameraTest {};

TEST_F(FuzzFindings, EachIsRefusedAndLeavesItsFile)
{
    const Finding findings[] = {
        {"a session timeout that reads back as the configuration's name",
         "<trt:SetMetadataConfiguration><trt:Configuration token=\"MetaData1\"><tt:SessionTimeout>a10;Name=x"
         "</tt:SessionTimeout></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
         "</trt:SetMetadataConfiguration>",
         "usr/apache/htdocs/onvif/MetaData1.MetaData"},
    };
    for (const Finding& f : findings) {
        std::string before = readFile(f.file);
        CgiResult r = call(f.body);
        EXPECT_EQ(r.status, 400) << f.what;
        EXPECT_EQ(readFile(f.file), before) << f.what;
    }
}

}  // namespace
