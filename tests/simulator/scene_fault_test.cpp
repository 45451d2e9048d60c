/** @file
 * Faults in generated scenes: each is refused with its place, what is there, and what must be.
 */
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "scene_maker.h"
#include "scene_text.h"

namespace
{

/** How many faults are planted: VANTOR_CAMPAIGN_SIZE, or few. */
unsigned fault_count()
{
    const char *size = std::getenv("VANTOR_CAMPAIGN_SIZE");
    return size != nullptr ? static_cast<unsigned>(std::stoul(size)) : 500U;
}

TEST(scene_fault, is_refused_with_its_place)
{
    const unsigned count = fault_count();
    std::map<std::string, unsigned> kinds;
    for (unsigned seed = 0; seed < count; ++seed)
    {
        scene_maker maker(seed);
        const planted_fault fault = maker.plant(maker.scene());
        ++kinds[fault.kind];
        const std::string refusal = refusal_of(fault.text, 5);
        for (const std::string &expected : fault.expected)
        {
            EXPECT_NE(refusal.find(expected), std::string::npos)
                << "seed " << seed << ", " << fault.kind << ": \"" << refusal << "\" should contain \""
                << expected << "\"\n"
                << fault.text.substr(0, 2000);
        }
        EXPECT_TRUE(refusal.ends_with(")")) << refusal;
    }
    EXPECT_GE(kinds.size(), 15U);
    for (const auto &[kind, number] : kinds)
    {
        std::printf("%6u %s\n", number, kind.c_str());
    }
}

TEST(scene_fault, in_an_example_is_refused)
{
    for (const auto &entry : std::filesystem::directory_iterator(EXAMPLE_SCENES))
    {
        std::ifstream file(entry.path());
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        ASSERT_EQ(refusal_of(text, 5), "");
        // Every cut that leaves something of the object is noticed.
        const size_t end = text.rfind('}');
        for (size_t size = 1; size <= end; size += 7)
        {
            EXPECT_NE(refusal_of(text.substr(0, size), 5).find("the scene is not JSON"), std::string::npos)
                << size;
        }
    }
}

} // namespace
