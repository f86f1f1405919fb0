// The tables of docs/states.md against the program.
#include "app/clock_model.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_pll.h"
#include "sig/ref_types.h"
#include "sim/node/main_processor.h"
#include "sim/scenario/scenario.h"

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
    std::ifstream page(std::string(TU_DOCS) + "/states.md");
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

TEST(StatesPage, TheRegulatorsStateMakesTheClocks)
{
    const std::vector<Row> rows = tableOf("clock");
    std::size_t named = 0;
    for (u8 regState = WARMUP; regState <= PREJUMPHIST; ++regState) {
        if (regState == 7 || regState == FAILURE || regState == UNKNOWN || regState == STARTUPTIME) continue;
        ++named;
        const auto row = std::ranges::find_if(rows, [regState](const Row& r) {
            return r.at(0) == KvdLoz6TuReg_regStateText(regState);
        });
        ASSERT_NE(row, rows.end()) << KvdLoz6TuReg_regStateText(regState);
        app::ClockFacts f;
        f.regState = regState;
        f.selected = GPS_REF;
        app::ClockFacts none = f, frequency = f, slave = f;
        none.selected = NO_REF;
        frequency.timeMode = false;
        slave.master = false;
        slave.selected = IDL1_REF;
        std::size_t column = 0;
        for (const app::ClockFacts& facts : {f, none, frequency, slave})
            EXPECT_EQ(row->at(++column), sim::clockStateName(app::expectedClock(facts))) << row->at(0);
    }
    EXPECT_EQ(rows.size(), named);
    for (const Row& row : tableOf("loops")) {
        app::ClockFacts f;
        f.selected = GPSOSL_REF;
        f.regState = FREQLOCKED;
        f.master = !row.at(0).starts_with("SLAVE");
        for (u32 state = 0; state <= PLL_Locked_Holdover; ++state) {
            if (row.at(0) == KvdLoz6TuReg_pllStateText(state)) f.pllState = state;
            if (row.at(0) == KvdLoz6TuReg_slavePllStateText(state)) f.slavePllState = state;
        }
        EXPECT_EQ(row.at(1), sim::clockStateName(app::expectedClock(f))) << row.at(0);
    }
}

}  // namespace
