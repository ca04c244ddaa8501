// The capability table is looked up by name: a name the code asks for that
// no row carries would read as "no" for every camera.
#include "state/model.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <regex>
#include <string>

#include "tests/fixture.h"

namespace {

TEST(Model, EveryCapabilityTheSourcesAskForHasRows)
{
    const std::regex ask("model(Has|Value)\\(\"([^\"]*)\"\\)");
    int asked = 0;
    for (const char* dir : {"frame", "state", "device", "deviceio", "media", "ptz", "imaging", "events", "tools"}) {
        std::string path = std::string(ONVIF_SOURCE_DIR) + "/" + dir;
        DIR* d = opendir(path.c_str());
        ASSERT_TRUE(d) << path;
        while (dirent* e = readdir(d)) {
            std::string name = e->d_name;
            if (name.size() < 4 || name.compare(name.size() - 4, 4, ".cpp") != 0)
                continue;
            const std::string text = slurp(path + "/" + name);
            for (std::sregex_iterator m(text.begin(), text.end(), ask), end; m != end; ++m) {
                ++asked;
                EXPECT_TRUE(modelKnows((*m)[2].str().c_str())) << (*m)[2] << " in " << dir << "/" << name;
            }
        }
        closedir(d);
    }
    EXPECT_GT(asked, 40);
}

}  // namespace
