// The tables of docs/states.md against the program.
#include "app/clock_model.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sim/node/main_processor.h"
#include "sim/scenario/scenario.h"
#include "tests/support/tree.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Row = std::vector<std::string>;

/// Cells of the table behind <!-- table: name -->, without its head and their backticks.
std::vector<Row> tableOf(const std::string& name)
{
    std::ifstream page(projectTree() / "docs/states.md");
    std::string line;
    while (std::getline(page, line) && line != "<!-- table: " + name + " -->") {}
    std::vector<Row> rows;
    while (std::getline(page, line) && line.starts_with("|")) {
        std::erase(line, '`');
        std::stringstream cells(line.substr(1));
        Row row;
        for (std::string cell; std::getline(cells, cell, '|');) {
            const std::size_t begin = cell.find_first_not_of(' ');
            cell.erase(cell.find_last_not_of(' ') + 1);
            row.push_back(begin == std::string::npos ? "" : cell.substr(begin));
        }
        rows.push_back(row);
    }
    if (rows.size() > 2) rows.erase(rows.begin(), rows.begin() + 2);
    return rows;
}

/// "any", "2, 3", "1": whether a cell holds the number.
bool holds(const std::string& cell, int number)
{
    return cell == "any" || cell.find(std::to_string(number)) != std::string::npos;
}

TEST(StatesPage, GradesMakeTheRegulatorsState)
{
    const std::vector<Row> rows = tableOf("grades");
    for (u8 f_ix = 1; f_ix <= 5; ++f_ix)
        for (u8 before = 1; before <= 3; ++before)
            for (u8 t_ix = 1; t_ix <= 3; ++t_ix) {
                Row found;
                for (const Row& row : rows)
                    if (holds(row.at(0), f_ix) && holds(row.at(1), before) && holds(row.at(2), t_ix)) {
                        EXPECT_TRUE(found.empty()) << "two rows for one";
                        found = row;
                    }
                ASSERT_FALSE(found.empty()) << +f_ix << " " << +before << " " << +t_ix;
                const u8 made = control::stateOfGrades(f_ix, t_ix, before, WARMUP);
                EXPECT_EQ(found.at(3), KvdLoz6TuReg_regStateText(made));
            }
}

/// What the recorder gets of a unit that starts, is confirmed in that role and selects.
app::ClockModel modelOf(u8 role, u8 timeMode, int reference)
{
    app::ClockModel model;
    model.programStarts(false);
    KvdTuiifInitiateServiceCfm cfm{};
    cfm.sigNo = KVD_TUIIF_INITIATE_SERVICE_CFM;
    cfm.timeMode = timeMode;
    cfm.masterSlaveMode = role;
    model.ordered(std::as_bytes(std::span(&cfm, 1)));
    model.recorded(0, "Reference update: selectedRef (" + std::to_string(reference) + "), prevSelRef (1).");
    return model;
}

std::string nameOfDue(const app::ClockModel& model)
{
    const std::vector<u8> due = model.due(0);
    return sim::clockStateName(due.empty() ? u8{KVD_TUIIF_UNKNOWN} : due.front());
}

TEST(StatesPage, TheRegulatorsStateMakesTheClocks)
{
    const std::vector<Row> rows = tableOf("clock");
    for (const Row& row : rows) {
        ASSERT_TRUE(sim::regStateByName(row.at(0))) << row.at(0);
        std::size_t column = 0;
        for (app::ClockModel m :
             {modelOf(KVD_TUIIF_MASTER_TU, 3, GPS_REF), modelOf(KVD_TUIIF_MASTER_TU, 3, NO_REF),
              modelOf(KVD_TUIIF_MASTER_TU, 1, GPS_REF), modelOf(KVD_TUIIF_SLAVE_TU, 3, IDL1_REF)}) {
            m.recorded(0, "Report regState UNKNOWN -> " + row.at(0));
            EXPECT_EQ(row.at(++column), nameOfDue(m)) << row.at(0);
        }
    }
    EXPECT_EQ(rows.size(), 10u);       // without marks and names that nothing enters
    for (const Row& row : tableOf("loops")) {
        const bool isSlave = row.at(0).starts_with("SLAVE");
        app::ClockModel m = modelOf(isSlave ? KVD_TUIIF_SLAVE_TU : KVD_TUIIF_MASTER_TU, 3, GPSOSL_REF);
        m.recorded(0, "State change: PLL_Unlocked -> " + row.at(0));
        EXPECT_EQ(row.at(1), nameOfDue(m)) << row.at(0);
    }
}

}  // namespace
