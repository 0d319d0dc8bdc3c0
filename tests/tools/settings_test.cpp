// SPDX-License-Identifier: MIT
#include "zorvan/workflow/autosettings.h"
#include "zorvan/workflow/flagstore.h"
#include "zorvan/workflow/settingsfile.h"

#include "workfolder.h"

#include "tools/zorvan/options.h"
#include "zorvan/scans/inputerror.h"
#include "zorvan/workflow/settingwords.h"

#include "tests/support/commalocale.h"

#include "zorvan/preregistration/settingsserialization.h"
#include "zorvan/runtime/csharedmemory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>

using bson::element;
using bson::object;
using prereg::ConfigurationFPFH;

namespace {

/// Tests run side by side, each in a process of its own.
std::string uniqueStore() { return "zorvan.test." + std::to_string(::getpid()); }

std::string set(const std::string& nameAndValue)
{
    return "flags set " + nameAndValue + " --hold 0 --store " + uniqueStore();
}

std::string frozen(const object& document)
{
    const auto [bytes, size] = document.freeze();
    return {bytes.get(), bytes.get() + size};
}

} // namespace

TEST(SettingsText, ReadsBackExactlyAndDescribesEverySetting)
{
    ConfigurationFPFH config = prereg::AllSettingsForGrid(1.0 / 3.0);
    config.uiNumNeighbors = 7;
    config.dMaxPolygonVertexError = 1e-7;
    const std::string text = prereg::WriteSettingsText(config, "heading");
    EXPECT_EQ(prereg::WithSettings({}, prereg::ReadSettingsText(text, "text")), config) << text;
    {
        const CCommaLocale comma;
        EXPECT_EQ(prereg::WriteSettingsText(config, "heading"), text);
        EXPECT_EQ(prereg::WithSettings({}, prereg::ReadSettingsText(text, "text")), config);
    }
    for (const object& all : {bson::to_object(config), bson::to_object(config.icpConfig)})
        for (const element& e : all)
            EXPECT_TRUE(e.type() == element::eObject || !prereg::WordsForSetting(e.name()).empty()) << e.name();
}

TEST(SettingsText, ChangesWhatItNamesOnly)
{
    const char* text = "\xEF\xBB\xBF{ # by hand\r\n 'dMaxRMSE' : 1, \"icpConfig\" : {'uiNumSamples' : 9}\r\n}\r\n";
    const object settings = prereg::ReadSettingsText(text, "text");
    ConfigurationFPFH expected = prereg::AllSettingsForGrid(0.2);
    expected.icpConfig.dMaxRMSE = 1.0;
    expected.icpConfig.uiNumSamples = 9;
    EXPECT_EQ(prereg::WithSettings(prereg::AllSettingsForGrid(0.2), settings), expected);
    EXPECT_EQ(prereg::WithSettings(expected, prereg::ReadSettingsText("{}", "text")), expected);
    EXPECT_DOUBLE_EQ(prereg::AllSettingsForGrid(0.6).dFeatureRadius,
                     2 * prereg::AllSettingsForGrid(0.3).dFeatureRadius);
}

TEST(SettingsText, IsRefusedWithPlaceAndReason)
{
    const std::string deep = [] {
        std::string text;
        for (int i = 0; i < 100000; ++i) text += "{'a':";
        return text;
    }();
    const std::pair<std::string, const char*> cases[] = {
        {"{\r\n  \"dMaxRSME\" : 0.1}", "line 2, column 3: no setting has the name \"dMaxRSME\"; perhaps dMaxRMSE"},
        {"{'icpConfig' : {'dGridSize' : 1}}", "column 17: dGridSize is no setting of the ICP"},
        {"{'dMaxRMSE' : 1, 'icpConfig' : {'dMaxRMSE' : 2}}", "column 33: dMaxRMSE is set a second time"},
        {"{'dMaxRMSE' : low}", "column 15: a value is needed"},
        {"{'dMaxRMSE' : null}", "dMaxRMSE needs a number"},
        {"{'dMaxRMSE' : .5}", "column 15: a digit must stand before"},
        {"{'dMaxRMSE' : 2147483648}", "too large"},
        {"{'dMaxRMSE' : -1}", "line 1, column 2: dMaxRMSE needs a number that is not negative"},
        {"{'uiNumSamples' : 1000001}", "whole number from 0 to 1000000"},
        {"{'uiNumNeighbors' : 101}", "uiNumNeighbors needs a whole number from 0 to 100"},
        {"{'uiNumSamples' : 2.0}", "uiNumSamples needs a whole number"},
        {"{'icpConfig' : 1}", "icpConfig needs {"},
        {"{'dMaxRMSE' : 1", "line 1: the text ends too early"},
        {"{'dMaxRMSE' : 1}\n}", "line 2, column 1: nothing may follow"},
        {"{'a b' : 1}", "one word"},
        {deep, "nested too deeply"},
        {"{'\xFF' : 1}", "not UTF-8"},
        {std::string("{\0}", 3), "no text"},
    };
    for (const auto& [text, words] : cases) {
        try {
            const object settings = prereg::ReadSettingsText(text, "mine.txt");
            ADD_FAILURE() << text << " gives " << settings.dump();
        } catch (const Zorvan::CInputError& error) {
            EXPECT_NE(std::string(error.what()).find(words), std::string::npos) << error.what() << ", not " << words;
            EXPECT_EQ(std::string(error.what()).rfind("mine.txt: ", 0), 0U) << error.what();
        }
    }
}

TEST(SettingsCommand, PrintsWhatAlignChoosesForTheSameGrid)
{
    const WorkFolder folder;
    ASSERT_EQ(folder.Run("simulate -o . --views 2 --points 12000 --seed 4 --quiet").exitCode, 0);
    ASSERT_EQ(folder.Run("settings --grid 0.0002 --scale 1000 -o all.txt").exitCode, 0);
    folder.Write("strict.txt", "{'dMaxRMSE' : 0.0001}");
    const std::string align = "align view00.ply view01.ply --initial rough.json --grid 0.2 --store " + uniqueStore();
    const auto automatic = folder.Run(align);
    EXPECT_EQ(automatic.exitCode, 0) << automatic.err;
    EXPECT_EQ(folder.Run(align + " --settings all.txt").out, automatic.out);
    EXPECT_EQ(folder.Run(align + " --settings strict.txt").exitCode, 1);
    ExpectRefused(folder.Run(align + " --settings view00.ply"), "view00.ply");

    Zorvan::CSharedFlags flags = prereg::OpenStore(uniqueStore());
    EXPECT_EQ(folder.Run(set("ConfigurationFPFH \"{'dMaxRMSE' : 0.0001}\"")).exitCode, 0);
    EXPECT_EQ(folder.Run(align + " --settings all.txt").exitCode, 1) << "the store counts more than the file";
    ExpectRefused(folder.Run(set("ConfigurationFPFH \"{'uiNumSample' : 1}\"")), "uiNumSamples");
    ASSERT_TRUE(flags.Set(element("ConfigurationFPFH", object(element("dGridSize", "wide")))));
    ExpectRefused(folder.Run(align), "ConfigurationFPFH in the flag store");
    ASSERT_TRUE(flags.Set(element("ConfigurationFPFH", object(element("uiNumNeighbors", 1000000)))));
    ExpectRefused(folder.Run(align), "uiNumNeighbors needs a whole number from 0 to 100");
}

TEST(FlagsCommand, SharesValuesOfEveryKind)
{
    const WorkFolder folder;
    EXPECT_EQ(folder.Run(set("lost true")).exitCode, 1) << "nobody holds the store";
    const Zorvan::CSharedFlags flags = prereg::OpenStore(uniqueStore());
    EXPECT_FALSE(flags.Exists("lost"));
    const std::pair<const char*, const char*> values[] = {{"true", "true"},
                                                          {"-3", "-3"},
                                                          {"0.1234567890123", "0.1234567890123"},
                                                          {"\"'word'\"", "word"},
                                                          {"\"{'inner' : 5}\"", "{\n  \"inner\" : 5\n}"}};
    for (const auto& [value, text] : values) {
        EXPECT_EQ(folder.Run(set(std::string("flag ") + value)).exitCode, 0) << value;
        EXPECT_EQ(folder.Run("flags get flag --store " + uniqueStore()).out, std::string(text) + "\n");
    }
    EXPECT_EQ(flags.Get("inner"), element("inner", 5));
    for (const char* wrong : {"word", "''", "\"1, 'b' : 2\"", "'1} {'", "\"{'a' : .5}\""})
        ExpectRefused(folder.Run(set(std::string("flag ") + wrong)), "VALUE: ");
    EXPECT_EQ(folder.Run("flags clear flag --store " + uniqueStore()).exitCode, 0);
    EXPECT_EQ(folder.Run("flags clear flag --store " + uniqueStore()).exitCode, 1);
    EXPECT_EQ(folder.Run("flags get flag --store " + uniqueStore()).exitCode, 1);
}

TEST(FlagsCommand, HoldsTheStoreUntilItIsStopped)
{
    const WorkFolder folder;
    auto holder = folder.Start("holder", "flags set steady 1 --hold 100000 --store " + uniqueStore());
    ASSERT_TRUE(holder.HasSaid("it is held for"));
    EXPECT_EQ(folder.Run("flags get steady --store " + uniqueStore()).out, "1\n");
    ASSERT_EQ(::kill(holder.Pid(), SIGTERM), 0);
    EXPECT_EQ(holder.Ended().exitCode, 0);
    EXPECT_FALSE(prereg::IsStoreHeld(uniqueStore()));
}

TEST(FlagsCommand, IsListenedToByThoseOnlyWhoNameTheStore) { EXPECT_EQ(tools::SettingsOptions().store, ""); }

TEST(FlagsCommand, StopsWaitingForAStoreThatCannotBeMade)
{
    const WorkFolder folder;
    const std::filesystem::path obstacle = // a folder where the semaphore's file would be
        "/dev/shm/zorvan-" + std::to_string(::geteuid()) + "-sem-Global%5c;" + uniqueStore() + ".mutex";
    ASSERT_TRUE(std::filesystem::create_directory(obstacle));
    for (const std::string signal : {"INT", "TERM"}) {
        const auto outcome = folder.Run(set("flag 1"), ">stdout.txt", "timeout -k 60 -s " + signal + " 2 ");
        EXPECT_EQ(outcome.exitCode, 124) << "it had to be killed";
    }
    std::filesystem::remove(obstacle);
}

TEST(FlagsCommand, RefusesAStoreLargerThanItsOwn)
{
    const WorkFolder folder;
    const auto memory = Zorvan::CSharedMemory::Create(bson::convert(uniqueStore()), 1U << 20U);
    ExpectRefused(folder.Run("flags list --store " + uniqueStore()), "has 1048576 bytes, more than the 65536 of ours");
    EXPECT_EQ(folder.Run(set("flag 1")).exitCode, 2);
}

TEST(DumpCommand, ShowsDocumentsAndRefusesEveryCut)
{
    const WorkFolder folder;
    const object document{element("s", "a\x1B[31m"), element::make_uint8("small", 7),
                          element("icp", bson::to_object(prereg::ConfigurationICP())),
                          element("b", "0123456789abcdefgh", 18)};
    const std::string bytes = frozen(document);
    folder.Write("whole.zdoc", bytes);
    const auto outcome = folder.Run("dump whole.zdoc");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    for (const char* words :
         {"\"s\" : \"a\\x1b[31m\"", "\"small\" : 7,", "    \"dMaxRMSE\" : 0.025,", "<bin:18 bytes>"})
        EXPECT_NE(outcome.out.find(words), std::string::npos) << outcome.out;
    object deep;
    for (unsigned int i = 0; i < bson::uiMaxNesting; ++i) deep = element("o", deep);
    folder.Write("deep.zdoc", frozen(deep));
    const auto shown = folder.Run("dump deep.zdoc");
    EXPECT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_LT(shown.out.size(), bson::uiMaxNesting * 250) << "most of it blanks";
    EXPECT_EQ(std::ranges::count(shown.out, '}'), bson::uiMaxNesting + 1);
    for (std::size_t size = 0; size < bytes.size(); size += 11) {
        folder.Write("cut.zdoc", bytes.substr(0, size));
        ExpectRefused(folder.Run("dump cut.zdoc"), "cut.zdoc: ");
    }
    std::string damaged = bytes;
    damaged[6] = '\x7F'; // the string's length
    damaged[8] = '\x7F';
    folder.Write("damaged.zdoc", damaged);
    ExpectRefused(folder.Run("dump damaged.zdoc"), "damaged");
    damaged = bytes;
    damaged.back() = 8; // an element begins where the document must end
    folder.Write("damaged.zdoc", damaged);
    ExpectRefused(folder.Run("dump damaged.zdoc"), "does not end before byte " + std::to_string(bytes.size()));
}
