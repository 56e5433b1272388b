// All branches that are reached from one: breadth first, each branch is followed to its ends, and
// its branch points, Hopf points and period doublings are entered in their turn. What the diagram
// has already is not computed again, and what is not entered is noted with the reason.
#include "branches/diagram.hpp"

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <string>

#include "branches/access.hpp"
#include "branches/curves.hpp"
#include "branches/known.hpp"
#include "branches/runs.hpp"
#include "branches/start.hpp"
#include "branches/text.hpp"
#include "tx/error.hpp"
#include "tx/system.hpp"

namespace trajex {

namespace {

/// Points where other branches begin: those of which a table knows how to enter them, and those
/// that nobody can enter, which are noted.
bool leads_to_branches(const BranchData& branch, std::string_view type) {
    if (type == "H") return branch.solution == SolutionKind::equilibrium;  // else where cycles end
    return type == "BP" || type == "BPC" || type == "PD";
}

bool can_be_entered(std::string_view type) {
    const std::span<const Starter> all = starters();
    return std::any_of(all.begin(), all.end(), [&](const Starter& starter) {
        return starter.type == type && starter.branches != nullptr;
    });
}

/// Whether two records are of the same point of two branches. A Hopf point at which a branch of
/// cycles ends is that of the equilibria: there the cycle is a point, and its period no property
/// of it.
bool same_point(const SpecialData& a, const Description& p, const SpecialData& b, double width,
                std::size_t parameter) {
    if (a.finding.type != b.finding.type) return false;
    const Description& q = b.point.description;
    constexpr double close = 1e-5;
    if (std::abs(p.parameters[parameter] - q.parameters[parameter]) > close * width) return false;
    const double size = std::max({p.norm, q.norm, 1e-3});
    if (a.finding.type != "H") {
        if (a.point.kind != b.point.kind) return false;
        if (std::abs(p.period - q.period) > close * std::max(p.period, q.period)) return false;
    }
    for (std::size_t i = 0; i < p.state.size(); ++i) {
        if (std::abs(p.state[i] - q.state[i]) > close * size) return false;
    }
    return true;
}

constexpr double largest_share = 0.5;  // of the work left that one branch may do,
constexpr double least_share = 0.01;   // and of all the work, for which no branch is begun

class Explorer {
  public:
    Explorer(std::size_t parameter, tx::Window window, tx::Options options)
        : parameter_(parameter),
          options_(std::move(options)),
          known_(std::make_shared<KnownSolutions>()) {
        options_.window = window;
        options_.known = known_;
        work_left_ = work_ = options_.max_work;
    }

    tx::Diagram explore(const PointData& start) {
        keep(tx::Branch(follow(start, parameter_, options_.window, options_)), {});
        options_.direction = tx::Direction::both;
        while (!tasks_.empty() && !cancelled_) {
            const Task task = tasks_.front();
            tasks_.pop_front();
            enter(task);
        }
        return std::move(diagram_);
    }

    tx::Diagram& diagram() { return diagram_; }

  private:
    /// How a branch was come by.
    struct Origin {
        std::string parent;  ///< special point, empty for the first branch
        int depth = 0;
        int doublings = 0;
    };
    struct Task {
        tx::Special special;
        Origin origin;  ///< of its branch
    };

    void refuse(const std::string& what, const std::string& reason) {
        diagram_.note(what + ": " + reason);
    }

    /// Why a special point is not entered; empty: it is.
    std::string reason_against(const Task& task) const {
        const tx::Special& special = task.special;
        if (special.status() != "located") {
            return special.status() + ", " + special.reason() + "; not followed";
        }
        if (const auto family = families_.find(special.id()); family != families_.end()) {
            return "its cycles are " + family->second;
        }
        if (!can_be_entered(special.type())) {
            return "not followed, what begins at " + special.type() + " is not computed";
        }
        if (task.origin.depth >= options_.depth) {
            return "not followed, depth " + std::to_string(options_.depth) + " is reached";
        }
        if (diagram_.size() >= options_.max_branches) {
            return "not followed, there are " + std::to_string(options_.max_branches) + " branches";
        }
        if (work_left_ < least_share * work_) return "not followed, max_work is used up";
        if (special.type() == "PD" && task.origin.doublings >= options_.max_doublings) {
            return "not followed, the period is doubled " + std::to_string(task.origin.doublings) +
                   " times already";
        }
        return {};
    }

    void enter(const Task& task) {
        const std::string& id = task.special.id();
        const std::string against = reason_against(task);
        if (!against.empty()) return refuse(id, against);
        const bool doubling = task.special.type() == "PD";
        const Origin origin{id, task.origin.depth + 1, task.origin.doublings + (doubling ? 1 : 0)};
        std::vector<tx::Branch> branches;
        options_.max_work = largest_share * work_left_;
        try {
            branches = task.special.switch_branch(options_);
        } catch (const tx::Error& error) {
            return refuse(id, error.what());
        }
        if (branches.empty()) refuse(id, "no branch was found");
        for (const tx::Branch& branch : branches) {
            if (!cancelled_) keep(branch, origin);
        }
    }

    /// Takes a branch in, unless the diagram has it, and plans what to enter from there.
    void keep(const tx::Branch& branch, const Origin& origin) {
        const BranchData& found = tx::Access::data(branch);
        work_left_ -= found.work;
        for (const tx::StopReason& stop : found.stop) {
            if (stop == tx::StopReason::cancelled) cancelled_ = true;
        }
        if (found.size() < 2) {
            return refuse(
                origin.parent.empty() ? "start" : origin.parent,
                "no branch, " + std::string(found.stop[0].text()) + ": " + found.stop_detail[0]);
        }
        if (const KnownBranch old = branch_of_all_points(found)) {
            return refuse(origin.parent, "leads to " + old.name());
        }
        diagram_.add(without_known_points(branch));
        const tx::Branch& added = diagram_.branches().back();
        known_->add(tx::Access::pointer(added));
        if (!found.image.empty()) diagram_.note(origin.parent + ": " + found.image);
        for (const tx::Special& special : added.specials()) {
            if (leads_to_branches(tx::Access::data(added), special.type()))
                tasks_.push_back({special, origin});
        }
    }

    /// The known branch that a branch runs along with all its points.
    KnownBranch branch_of_all_points(const BranchData& branch) const {
        KnownBranch last;
        for (std::size_t i = 0; i < branch.size(); ++i) {
            const PointData point = point_of(branch, i);
            last = known_->branch_through(branch.solution, branch.vary, point.description);
            if (!last) return {};
        }
        return last;
    }

    /// A branch less the special points that the diagram has from other branches.
    tx::Branch without_known_points(const tx::Branch& branch) {
        auto data = std::make_shared<BranchData>(tx::Access::data(branch));
        data->options.known.reset();
        const std::string name = branch_id(diagram_.size());
        const double width = options_.window.hi - options_.window.lo;
        std::erase_if(data->specials, [&](const SpecialData& special) {
            const Description& here = special.point.description;
            const Description image = mirrored(here, data->image_signs);
            for (const tx::Special& old : diagram_.specials()) {
                const SpecialData& known = tx::Access::data(old);
                const bool same = same_point(special, here, known, width, parameter_);
                if (!same && !same_point(special, image, known, width, parameter_)) continue;
                refuse(name, "passes through " + old.id() + (same ? "" : "'s mirror image"));
                if (special.finding.type == "H") families_.emplace(old.id(), name);
                return true;
            }
            return false;
        });
        return tx::Branch(std::move(data));
    }

    std::size_t parameter_;
    tx::Options options_;
    std::shared_ptr<KnownSolutions> known_;
    tx::Diagram diagram_;
    std::deque<Task> tasks_;
    std::map<std::string, std::string> families_;  ///< that end at Hopf points, by these
    double work_ = 0, work_left_ = 0;  // allowed for the whole, and of that what is not done yet
    bool cancelled_ = false;
};

}  // namespace

tx::Diagram make_diagram(const ModelPtr& model, std::size_t parameter, tx::Window window,
                         const tx::Options& options) {
    check_window(window, model->parameters[parameter]);
    check_options(options);
    if (!options.start.empty()) check_state(*model, options.start, "the start");
    tx::Diagram diagram;
    const PointData start = find_start(model, parameter, window, options);
    if (start.status != "found") {
        diagram.note("start: " + start.reason);
        return diagram;
    }
    return Explorer(parameter, window, options).explore(start);
}

}  // namespace trajex

namespace tx {

Diagram System::diagram(std::string_view parameter, Window window, const Options& options) const {
    return trajex::make_diagram(model_, model_->parameter(parameter), window, options);
}

Diagram ForcedSystem::diagram(std::string_view parameter, Window window,
                              const Options& options) const {
    return trajex::make_diagram(model_, model_->parameter(parameter), window, options);
}

}  // namespace tx
