#include "sysinfo/cpu_info.h"

#include "tests/unit/long_line.h"

#include <gtest/gtest.h>
#include <sstream>
#include <vector>

namespace {

using SYSINFO_NAMESPACE::CpuIdentity;
using SYSINFO_NAMESPACE::CpuModelName;
using SYSINFO_NAMESPACE::CpuTopology;

struct Counts {
    long processors;
    long sockets;
    long cores;
    bool operator==(const Counts&) const = default;
};

void PrintTo(const Counts& counts, std::ostream* stream)
{
    *stream << counts.processors << " processors, " << counts.sockets << " sockets, " << counts.cores
            << " cores";
}

/// Feeds a text line by line, each with its line end; gives the lines that were not understood.
template <typename Parser>
std::vector<std::string> feed(Parser& parser, const std::string& text)
{
    std::vector<std::string> unexpected;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size() - 1) + 1;
        const std::string line = text.substr(start, end - start);
        if constexpr (std::is_same_v<Parser, CpuTopology>) {
            if (!parser.addLine(line))
                unexpected.push_back(line);
        } else {
            parser.addLine(line);
        }
        start = end;
    }
    return unexpected;
}

Counts count(const std::string& text)
{
    CpuTopology topology;
    feed(topology, text);
    return {topology.processors(), topology.sockets(), topology.cores()};
}

std::vector<std::string> unexpectedLines(const std::string& text)
{
    CpuTopology topology;
    return feed(topology, text);
}

std::string processor(int number, const std::string& physicalId, const std::string& coreId)
{
    return "processor\t: " + std::to_string(number) +
           "\nvendor_id\t: SampleVendor\nphysical id\t: " + physicalId +
           "\nsiblings\t: 2\ncore id\t\t: " + coreId + "\ncpu cores\t: 2\n\n";
}

TEST(CpuTopology, CountsSocketsAndCoresByTheirIds)
{
    EXPECT_EQ(count(processor(0, "0", "0") + processor(1, "0", "1") + processor(2, "1", "0") +
                    processor(3, "1", "1")),
              (Counts{4, 2, 4}));
}

TEST(CpuTopology, ProcessorsOfOnePairOfIdsCountOneCore)
{
    EXPECT_EQ(count(processor(0, "0", "0") + processor(1, "0", "0")), (Counts{2, 1, 1}));
}

TEST(CpuTopology, WithoutPhysicalIdsNothingButProcessorsIsCounted)
{
    EXPECT_EQ(count("processor\t: 0\ncore id\t\t: 0\n\nprocessor\t: 1\ncore id\t\t: 1\n"), (Counts{2, 0, 0}));
}

TEST(CpuTopology, PhysicalIdOf32IsNotCounted)
{
    EXPECT_EQ(count(processor(0, "31", "0") + processor(1, "32", "0")), (Counts{2, 1, 1}));
    EXPECT_EQ(count(processor(0, "32", "0")), (Counts{1, 0, 0}));
}

TEST(CpuTopology, CoreIdOf16IsNotCountedButItsSocketIs)
{
    EXPECT_EQ(count(processor(0, "0", "15") + processor(1, "1", "16")), (Counts{2, 2, 1}));
}

TEST(CpuTopology, HugeIdsAreDropped)
{
    EXPECT_EQ(count(processor(0, "99999999999999999999999", "0")), (Counts{1, 0, 0}));
    EXPECT_EQ(count(processor(0, "0", "99999999999999999999999")), (Counts{1, 1, 0}));
    EXPECT_EQ(count(processor(0, "4294967296", "0")), (Counts{1, 0, 0})) << "not folded to 32 bits";
}

TEST(CpuTopology, NegativeIdKeepsThePairOpen)
{
    EXPECT_EQ(count(processor(0, "-1", "0")), (Counts{1, 0, 0}));
    EXPECT_EQ(count("processor\t: 0\ncore id\t: 2\nphysical id\t: -5\nphysical id\t: 3\n"),
              (Counts{1, 1, 1}));
    EXPECT_EQ(count(processor(0, "-99999999999999999999999", "0")), (Counts{1, 0, 0}));
}

TEST(CpuTopology, IdsAreDecimalOctalOrHexadecimalByTheirPrefix)
{
    EXPECT_EQ(count(processor(0, "0x1f", "0") + processor(1, "31", "00") + processor(2, "037", "1")),
              (Counts{3, 1, 2}));
    EXPECT_EQ(count(processor(0, "0x20", "0")), (Counts{1, 0, 0}));
    EXPECT_EQ(count(processor(0, "+1", "  2")), (Counts{1, 1, 1}));
}

TEST(CpuTopology, NothingBehindTheSeparatorReadsAsZero)
{
    EXPECT_EQ(count(processor(0, "", "")), (Counts{1, 1, 1}));
    EXPECT_EQ(count(processor(0, "", "0") + processor(1, "0", "")), (Counts{2, 1, 1}));
}

TEST(CpuTopology, NumberWithoutALineFeedBehindItIsUnexpectedAndKeepsTheOldId)
{
    for (const char* id : {"1x", "x", "1 ", "1\r", "0x", "08", "1.5", "1\t2"}) {
        EXPECT_EQ(unexpectedLines(processor(0, id, "0")),
                  std::vector<std::string>{"physical id\t: " + std::string(id) + "\n"})
            << id;
        EXPECT_EQ(count(processor(0, id, "0")), (Counts{1, 0, 0})) << id;
        EXPECT_EQ(count("physical id : 2\nphysical id : " + std::string(id) + "\ncore id : 0\n"),
                  (Counts{0, 1, 1}))
            << id;
    }
    EXPECT_EQ(unexpectedLines("core id\t\t: 7"), std::vector<std::string>{"core id\t\t: 7"}) << "no line end";
    EXPECT_EQ(unexpectedLines(std::string("core id\t\t: 7\0\n", 13)).size(), 1U);
}

TEST(CpuTopology, LinesWithoutColonAndBlankAreNotIdLines)
{
    EXPECT_EQ(count("processor\t:0\nphysical id\t:0\ncore id\t\t:0\n"), (Counts{0, 0, 0}));
    EXPECT_EQ(count("processor\nphysical id\ncore id\n: \n"), (Counts{0, 0, 0}));
    EXPECT_EQ(unexpectedLines("physical id\t:x\n"), std::vector<std::string>{});
}

TEST(CpuTopology, KeysCountAtTheBeginningOfALineOnly)
{
    EXPECT_EQ(count(" processor\t: 0\n physical id\t: 0\n core id\t: 0\nProcessor\t: 1\n"),
              (Counts{0, 0, 0}));
    EXPECT_EQ(count("processor 0: version = FF,  machine = 8561\nprocessors : 2\n"), (Counts{2, 0, 0}));
}

TEST(CpuTopology, ProcessorLineForgetsAnOpenPair)
{
    EXPECT_EQ(count("physical id\t: 0\nprocessor\t: 0\ncore id\t: 0\n"), (Counts{1, 0, 0}));
}

TEST(CpuTopology, IdsAreForgottenAfterAPair)
{
    EXPECT_EQ(count("physical id : 0\ncore id : 0\ncore id : 1\n"), (Counts{0, 1, 1}));
    EXPECT_EQ(count("physical id : 40\ncore id : 0\ncore id : 1\nphysical id : 0\n"), (Counts{0, 1, 1}));
}

TEST(CpuTopology, LastOfSeveralIdsOfAProcessorHoldsUntilThePairIsKnown)
{
    EXPECT_EQ(count("physical id : 0\nphysical id : 1\ncore id : 0\n" + processor(1, "1", "0")),
              (Counts{1, 1, 1}));
}

TEST(CpuTopology, DamagedTextsGiveSomeCount)
{
    EXPECT_EQ(count(""), (Counts{0, 0, 0}));
    EXPECT_EQ(count(std::string("\0\0\n\0", 4)), (Counts{0, 0, 0}));
    EXPECT_EQ(count(longLine('9')), (Counts{0, 0, 0}));
    EXPECT_EQ(count("core id : " + std::string(1'000'000, '1') + "\n"), (Counts{0, 0, 0}));
    EXPECT_EQ(count("\xff\xfe\n\x80: \n"), (Counts{0, 0, 0}));
}

CpuIdentity identityOf(const std::string& text)
{
    CpuIdentity identity;
    feed(identity, text);
    return identity;
}

TEST(CpuIdentity, TakesFamilyModelAndStepping)
{
    const CpuIdentity cpu =
        identityOf("cpu family\t: 6\nmodel\t\t: 79\nmodel name\t: Sample CPU @ 2.30GHz\nstepping\t: 1\n");
    EXPECT_EQ(cpu.family, "6");
    EXPECT_EQ(cpu.model, "79");
    EXPECT_EQ(cpu.stepping, "1");
}

TEST(CpuIdentity, FactsThatAreNotThereKeepTheMarker)
{
    for (const char* text :
         {"", "processor\t: 0\nCPU part\t: 0xd03\n", "model name\t: x\n", "model\nfamily\n"}) {
        const CpuIdentity cpu = identityOf(text);
        EXPECT_EQ(cpu.family, "<NULL>") << text;
        EXPECT_EQ(cpu.model, "<NULL>") << text;
        EXPECT_EQ(cpu.stepping, "<NULL>") << text;
    }
}

TEST(CpuIdentity, LastProcessorsValuesStand)
{
    EXPECT_EQ(identityOf("model\t: 1\nmodel\t: 2\n").model, "2");
    EXPECT_EQ(identityOf("model\t: 1\nmodel\t:\n").model, "") << "an empty value counts";
    EXPECT_EQ(identityOf("model\t: 1\nmodel\n").model, "1") << "a line without a value does not";
}

TEST(CpuIdentity, FamilyGoesBeforeModelAndModelBeforeStepping)
{
    const CpuIdentity cpu = identityOf("model family stepping\t: a\nmodel stepping\t: b\n");
    EXPECT_EQ(cpu.family, "a");
    EXPECT_EQ(cpu.model, "b");
    EXPECT_EQ(cpu.stepping, "<NULL>");
}

TEST(CpuIdentity, LineWithTheModelsNameIsSkippedWhateverElseItHolds)
{
    EXPECT_EQ(identityOf("cpu family and model name\t: 6\n").family, "<NULL>");
}

std::string modelNameOf(const std::string& text)
{
    CpuModelName model;
    feed(model, text);
    return model.text();
}

TEST(CpuModelName, ModelNameGoesBeforeThePlainModel)
{
    EXPECT_EQ(modelNameOf("model name\t: Sample CPU 2216\nmodel\t\t: 65\n"), "Sample CPU 2216");
    EXPECT_EQ(modelNameOf("model\t\t: 65\n"), "65");
    EXPECT_EQ(modelNameOf("model\t\t: Sample pSeries (emulated)\n"), "Sample pSeries (emulated)");
}

TEST(CpuModelName, LastLineOfEachKindStands)
{
    EXPECT_EQ(modelNameOf("model name\t: a\nmodel name\t: b\nmodel\t: 1\n"), "b");
    EXPECT_EQ(modelNameOf("model name\t: a\nmodel name\t: \nmodel\t: 1\n"), "1") << "an empty one gives way";
}

TEST(CpuModelName, LeadingBlanksAreRemoved)
{
    EXPECT_EQ(modelNameOf("model name\t:    Sample CPU  \n"), "Sample CPU  ");
    EXPECT_EQ(modelNameOf("model\t:    65\n"), "65");
}

TEST(CpuModelName, NameOfBlanksAloneIsEmptyAndNoMarker)
{
    EXPECT_EQ(modelNameOf("model name\t:    \nmodel\t: 1\n"), "")
        << "it was found, so the model is not taken";
    EXPECT_EQ(modelNameOf("model\t:    \n"), "");
}

TEST(CpuModelName, LastColonOfTheLineCounts)
{
    EXPECT_EQ(modelNameOf("model name\t: Sample: CPU\n"), "CPU");
}

TEST(CpuModelName, WithoutAModelItIsTheMarker)
{
    for (const char* text : {"", "processor\t: 0\n", "Model\t: 1\n", "model\n", "model:\n"})
        EXPECT_EQ(modelNameOf(text), "<NULL>") << text;
}

} // namespace
