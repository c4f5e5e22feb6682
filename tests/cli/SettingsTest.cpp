/// settings: what is in effect, where it comes from, and what is wrong with it.
#include <nlohmann/json.hpp>

#include "tests/cli/ProjectFixture.hpp"

namespace {

using SettingsTest = test::ProjectFixture;
using testing::HasSubstr;

TEST_F(SettingsTest, saysWhatHoldsAndWhatIsMisspelt) {
    const auto file = folder / "settings.ini";
    const auto settings = [&](const std::string& bytes) {
        test::writeBytes(file, bytes);
        test::Surroundings surroundings;
        surroundings.variables["PROJECT_METADATA_SETTINGS"] = file;
        const test::Outcome outcome = test::run({"settings", "--json"}, surroundings);
        auto json = nlohmann::json::parse(outcome.out);
        EXPECT_EQ(outcome.status, json.at("problems").empty() ? 0 : 1);
        EXPECT_EQ(json.at("file"), file.native());
        EXPECT_EQ(test::run({"settings"}, surroundings).status, outcome.status);
        return json;
    };
    const auto valueOf = [](const nlohmann::json& json, const std::string& key) {
        for (const auto& setting : json.at("settings")) {
            if (setting.at("key") == key)
                return std::pair(setting.at("value").get<std::string>(), setting.at("line"));
        }
        return std::pair(std::string("none"), nlohmann::json());
    };
    const auto sound = settings(
        "\xEF\xBB\xBF; DefaultMetadataRoot = x\n[korvex.project.creation]\n\n"
        " DefaultMetadataManager =  sqlite \n");
    EXPECT_EQ(valueOf(sound, "DefaultMetadataManager"), std::pair(std::string("sqlite"), nlohmann::json(4)));
    EXPECT_EQ(valueOf(sound, "DefaultMetadataRoot"), std::pair(std::string("resources/project"), nlohmann::json()));

    const std::map<std::string, std::string> problems{
        {"[korvex.project.creation]\nDefaultMetdataRoot = x\n", "did you mean \"DefaultMetadataRoot\"?"},
        {"[korvex.project.creatoin]\nDefaultMetadataRoot = x\n", "did you mean \"korvex.project.creation\"?"},
        {"[korvex.project.creation]\nDefaultMetadataRoot = x\n", "\"x\" is no value"},
        {"[korvex.project.creation]\nDefaultMetadataManager = sqlit\n", "did you mean \"sqlite\"?"},
        {"[korvex.project.metadata]\nMakeReadOnlyMetadataWritable = ys\n", "did you mean \"yes\"?"}};
    for (const auto& [bytes, problem] : problems) {
        const auto found = settings(bytes).at("problems");
        ASSERT_EQ(found.size(), 1U) << bytes;
        EXPECT_EQ(found[0].at("line"), 2);
        EXPECT_THAT(found[0].at("problem").get<std::string>(), HasSubstr(problem));
    }
    std::filesystem::remove(file);
    test::Surroundings surroundings;
    surroundings.variables["PROJECT_METADATA_SETTINGS"] = file;
    EXPECT_THAT(test::run({"settings"}, surroundings).out, HasSubstr(file.native() + ", which is not there\n"));
}

}  // namespace
