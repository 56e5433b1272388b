// Results without a run: a branch filled by hand, read back through the public classes, JSON and
// CSV.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <nlohmann/json.hpp>
#include <numbers>
#include <sstream>

#include "branches/access.hpp"
#include "branches/data.hpp"
#include "branches/known.hpp"
#include "tx.hpp"

namespace {

using namespace trajex;
using nlohmann::json;

/// Two variables, of which one has the name of a column of ours, and a name that JSON and CSV must
/// quote.
tx::System system_with_names() {
    return tx::System({"s", "a \"b\", c\n"}, {{"p", 0.0}, {"q", 0.1}},
                      [](double, const auto& x, const auto&, auto& dx) {
                          dx[0] = x[0];
                          dx[1] = x[1];
                      });
}

struct Sample {
    double p, q, x0, x1;
    std::complex<double> lambda;
};

/// A branch in p through the samples, with special points of the given types after its first point.
tx::Branch branch_of(const tx::System& system, const std::vector<Sample>& samples,
                     const std::vector<std::string>& types, std::vector<std::size_t> vary = {0}) {
    auto branch = std::make_shared<BranchData>();
    branch->kind = "equilibria";
    branch->model = system.model();
    branch->vary = std::move(vary);
    for (const std::size_t p : branch->vary) {
        branch->vary_names.push_back(system.parameters()[p]);
        branch->windows.push_back({-2, 2});
    }
    begin_columns(*branch);
    for (const Sample& sample : samples) {
        Description description;
        description.parameters = {sample.p, sample.q};
        description.state = {sample.x0, sample.x1};
        description.norm = std::hypot(sample.x0, sample.x1);
        const auto kind = sample.lambda.imag() == 0 ? Exponent::Kind::real : Exponent::Kind::pair;
        append_point(*branch, description,
                     {{sample.lambda, 1e-15, kind}, {std::conj(sample.lambda), 1e-15, kind}},
                     {0.5, -1, 3, 1e-14});
    }
    for (const std::string& type : types) {
        SpecialData& special = branch->specials.emplace_back();
        special.id = type + "1";
        special.finding.type = type;
        special.finding.subtype = "subcritical";
        special.finding.coefficients = {{"l1", 0.25, 1e-9}};
        special.point = point_of(*branch, 0);
    }
    return tx::Branch(std::move(branch));
}

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
const std::vector<Sample> two_samples = {{0.1, 0.1, 1.0 / 3, -0.0, {0, 2}},
                                         {std::nextafter(0.1, 1), 0.1, nan, 5e-324, {-1e300, 0}}};

TEST(Results, JsonReadsBackAsTheSameNumbers) {
    const tx::Branch branch = branch_of(system_with_names(), two_samples, {"H", "UZ"});
    tx::Diagram diagram;
    diagram.add(branch);
    diagram.note("a \\ b\t");
    const json file = json::parse(diagram.json());
    EXPECT_EQ(file["format"], "tx-diagram");
    EXPECT_EQ(file["version"], 1);
    EXPECT_EQ(file["system"]["states"], json({"s", "a \"b\", c\n"}));
    EXPECT_EQ(file["system"]["parameters"], json({{"p", 0.0}, {"q", 0.1}}));
    EXPECT_TRUE(file["system"]["equations"].is_null());
    EXPECT_EQ(file["log"], json({"a \\ b\t"}));

    const json& read = file["branches"][0];
    EXPECT_EQ(read["kind"], "equilibria");
    EXPECT_EQ(read["vary"], json({"p"}));
    EXPECT_EQ(read["stop"], json({"parameter_bound", "parameter_bound"}));
    ASSERT_EQ(read["columns"].size(), branch.columns().size());
    for (const std::string& name : branch.columns()) {
        for (std::size_t i = 0; i < branch.size(); ++i) {
            const double value = branch.column(name)[i];
            const json& written = read["columns"][name][i];
            EXPECT_TRUE(std::isnan(value) ? written.is_null() : written.get<double>() == value)
                << name;
        }
    }
    EXPECT_EQ(read["spectrum"][1][0], json({-1e300, 0.0}));

    const json& special = read["specials"][0];
    EXPECT_EQ(special["id"], "H1");
    EXPECT_EQ(special["type"], "H");
    EXPECT_EQ(special["subtype"], "subcritical");
    EXPECT_EQ(special["status"], "located");
    EXPECT_EQ(special["parameters"], json({{"p", 0.1}, {"q", 0.1}}));
    EXPECT_EQ(special["state"], json({1.0 / 3, -0.0}));
    EXPECT_TRUE(special["period"].is_null());
    EXPECT_EQ(special["eigenvalues"], json({{0.0, 2.0}, {0.0, -2.0}}));
    EXPECT_EQ(special["coefficients"], json({{"l1", 0.25}}));
    EXPECT_EQ(special["error"], 0.0);
}

TEST(Results, CsvHasALineForEachPoint) {
    const std::string csv = branch_of(system_with_names(), two_samples, {}).csv();
    EXPECT_EQ(csv,
              "s_,p,s,\"a \"\"b\"\", c\n\",norm,period,n_unstable,stable,pdot,newton_iterations,"
              "residual,mesh_error,multiplier_error\n"
              "0.5,0.1,0.3333333333333333,-0,0.3333333333333333,0,0,1,-1,3,1e-14,0,1e-15\n"
              "0.5,0.10000000000000002,,5e-324,,0,0,1,-1,3,1e-14,0,1e-15\n");
}

TEST(Results, MisuseNamesWhatIsGivenAndWhatIsKnown) {
    const tx::Branch branch = branch_of(system_with_names(), two_samples, {"H", "UZ"});
    const tx::Special hopf = branch["H1"];
    const tx::Point point = branch.point(0);
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[&] { branch["LP1"]; }, "no special point 'LP1'; the branch has H1, UZ1"},
        {[&] { hopf.coefficient("l2"); }, "no coefficient 'l2'; H1 has l1"},
        {[&] { hopf.parameter("rho"); }, "no parameter 'rho'; the system has p, q"},
        {[&] { branch.point(2); }, "no point 2; there are 2, counted from 0"},
        {[&] { branch.eigenvalues(7); }, "no point 7; there are 2, counted from 0"},
        {[&] {
             point.follow("p", {1, -1});
         },
         "the window of p is empty"},
        {[&] {
             point.follow("p", {nan, 1});
         },
         "window of p is nan"},
        {[&] {
             point.follow("p", {-1, 1}, {.h_max = -1});
         },
         "h_max is between 0 and 1, not -1"},
        {[&] {
             point.follow("p", {-1, 1}, {.detect = tx::Detect::only({"Hopf"})});
         },
         "no type 'Hopf'; tx has LP, BP, H"},
        {[&] {
             hopf.follow({"p", "p"}, {{0, 1}, {0, 1}});
         },
         "not 'p' twice"},
        {[&] { tx::Diagram()["H1"]; }, "no special point 'H1'; the diagram has none"},
        {[&] { tx::Point().state(); }, "this Point is empty"},
        {[&] { tx::Special().switch_branch(); }, "this Special is empty"},
        {[&] { tx::Diagram().add(tx::Branch()); }, "this Branch is empty"},
    };
    for (const auto& [misuse, message] : cases) {
        try {
            misuse();
            ADD_FAILURE() << "nothing thrown: " << message;
        } catch (const tx::Error& error) {
            EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
        }
    }
    EXPECT_THROW(tx::Diagram().save("/no such directory/x.json"), std::runtime_error);
}

TEST(Results, NamesOfAVariableGoBeforeNamesOfColumns) {
    const tx::Branch branch = branch_of(system_with_names(), two_samples, {});
    EXPECT_EQ(branch.column("s")[0], 1.0 / 3);
    EXPECT_EQ(branch.column("s_")[0], 0.5);
    EXPECT_EQ(branch.column("max s").data(), branch.column("s").data());
}

TEST(Results, ADiagramNumbersItsSpecialPoints) {
    const tx::System system = system_with_names();
    const tx::Branch first = branch_of(system, two_samples, {"H", "BP"});
    tx::Diagram diagram;
    diagram.add(first);
    diagram.add(branch_of(system, two_samples, {"H", "LP"}));
    auto child = std::make_shared<BranchData>(tx::Access::data(first));
    child->parent_branch = tx::Access::pointer(diagram.branch(1));
    child->parent_special = 0;
    diagram.add(tx::Branch(std::move(child)));
    std::string names;
    for (const tx::Special& special : diagram.specials()) names += special.id() + " ";
    EXPECT_EQ(names, "H1 BP1 H2 LP1 H3 BP2 ");
    EXPECT_EQ(diagram.branch(2).parent(), "H2");
    EXPECT_EQ(diagram["H3"].type(), "H");
}

TEST(Results, TextIsOneLineAndTheTableIsAligned) {
    const tx::System system = system_with_names().with("q", 0.5);
    const tx::Branch branch =
        branch_of(system, {{0.1, 0.5, 1, 2, {0, 2}}, {0.2, 0.5, 1, 2, {-1, 0}}}, {"H"});
    EXPECT_EQ(branch["H1"].text(),
              "H1  p = 0.1  (s = 1, a \"b\", c\n = 2)  l1 = 0.25  subcritical");
    EXPECT_EQ(branch.text(),
              "equilibria in p from 0.1 to 0.2; 2 points; ends: parameter_bound, parameter_bound; "
              "H1");
    tx::Diagram diagram;
    diagram.add(branch);
    EXPECT_EQ(diagram.text(),
              "point  p    period  critical  verdict\n"
              "b1  equilibria\n"
              "  EP   0.1          0 +- 2i   parameter_bound, stable\n"
              "  H1   0.1          0 +- 2i   subcritical\n"
              "  EP   0.2          -1        parameter_bound, stable\n");
}

/// Points of the ellipse x0 = cos, x1 = 10 sin, p = cos / 2 at angles that begin with `first`.
std::vector<Sample> ellipse(double first, std::size_t count, double side = 1) {
    std::vector<Sample> samples;
    for (std::size_t i = 0; i < count; ++i) {
        const double angle = first + 0.05 * static_cast<double>(i);
        samples.push_back(
            {0.5 * std::cos(angle), 0, std::cos(angle), side * 10 * std::sin(angle), {-1, 0}});
    }
    return samples;
}

TEST(KnownSolutions, CurvesAreRecognisedWhateverTheirPoints) {
    const tx::System system = system_with_names();
    KnownSolutions known;
    known.add(tx::Access::pointer(branch_of(system, ellipse(0.2, 40), {})));
    const auto hits = [&](const std::vector<Sample>& samples, std::vector<std::size_t> vary) {
        const tx::Branch branch = branch_of(system, samples, {});
        std::size_t count = 0;
        for (std::size_t i = 0; i < branch.size(); ++i) {
            const Description solution = tx::Access::data(branch.point(i)).description;
            count += known.branch_through(SolutionKind::equilibrium, vary, solution) ? 1U : 0U;
        }
        return count;
    };
    EXPECT_EQ(hits(ellipse(0.2123, 38), {0}), 38U);     // the same curve, other points
    EXPECT_EQ(hits(ellipse(-0.83, 20), {0}), 0U);       // its continuation beyond the known points
    EXPECT_EQ(hits(ellipse(0.2123, 38, -1), {0}), 0U);  // its mirror image
    EXPECT_EQ(hits(ellipse(0.2123, 38, 1.002), {0}), 0U);  // a neighbour
    EXPECT_EQ(hits(ellipse(0.2123, 38), {1}), 0U);         // another parameter
}

}  // namespace
