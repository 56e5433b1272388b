// The C++ layer as a Python module: systems made of addresses or of a Python callable, runs without
// the interpreter's lock, results as handles whose columns are NumPy arrays over the library's own
// memory. What a user sees (text of equations, tables, plots, files) is Python on top of it.
#include <pybind11/complex.h>
#include <pybind11/functional.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "tx.hpp"

namespace py = pybind11;
using namespace py::literals;

namespace {

using Strings = std::vector<std::string>;
using Numbers = std::vector<double>;

// ---- Right-hand sides ----

// Lets signals through to Python at most every 50 ms; a handler that raises ends the run. The clock
// is not asked for at each of many cheap calls.
class SignalCheck {
  public:
    bool due() {
        if (++calls_ % 256 != 0) return false;
        return ready();
    }
    bool ready() {
        const auto now = std::chrono::steady_clock::now();
        if (now - last_ < std::chrono::milliseconds(50)) return false;
        last_ = now;
        return true;
    }
    static void check() {  // with the lock held
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }

  private:
    unsigned calls_ = 0;
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

// A Python object that may be let go of, and copied, without the lock.
using Kept = std::shared_ptr<const py::object>;

Kept keep(py::object object) {
    return {new py::object(std::move(object)), [](const py::object* kept) {
                const py::gil_scoped_acquire lock;
                delete kept;
            }};
}

py::array_t<double> matrix(std::size_t rows, std::size_t columns, const double* values) {
    return py::array_t<double>({rows, columns}, values);
}

py::array_t<double> vector(std::size_t size, const double* values) {
    return py::array_t<double>(static_cast<py::ssize_t>(size), values);
}

// Python callables f(t, x, c) -> (n, K) and, where given, jacobian(t, x, c) -> (n, n, K). They are
// called with blocks of points: t of shape (K,), x of shape (n, K). The lock is taken for the call:
// it may come from a run that has released it.
class PythonFunctions {
  public:
    PythonFunctions(py::function f, py::object jacobian, std::size_t n, std::size_t m)
        : f_(keep(std::move(f))), jacobian_(keep(std::move(jacobian))), n_(n), m_(m) {}

    static void block(std::size_t K, const double* t, const double* x, const double* c, double* out,
                      void* context) {
        const auto& self = *static_cast<const PythonFunctions*>(context);
        const py::gil_scoped_acquire lock;
        self.call(*self.f_, {self.n_, K}, {t, x, c}, out);
    }
    static void block_jacobian(std::size_t K, const double* t, const double* x, const double* c,
                               double* out, void* context) {
        const auto& self = *static_cast<const PythonFunctions*>(context);
        const py::gil_scoped_acquire lock;
        self.call(*self.jacobian_, {self.n_, self.n_, K}, {t, x, c}, out);
    }

  private:
    struct Arguments {
        const double* t;
        const double* x;
        const double* c;
    };

    // The arguments are copies: a callable may keep them.
    void call(const py::object& f, const std::vector<std::size_t>& shape, const Arguments& at,
              double* out) const {
        const std::size_t K = shape.back();
        const auto result = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(
            f(vector(K, at.t), matrix(n_, K, at.x), vector(m_, at.c)));
        if (!result) PyErr_Clear();
        if (!result || !std::equal(shape.begin(), shape.end(), result.shape(),
                                   result.shape() + result.ndim())) {
            std::string wanted;
            for (const std::size_t size : shape)
                wanted += (wanted.empty() ? "(" : ", ") + std::to_string(size);
            throw py::value_error("the right-hand side has to return an array of shape " + wanted +
                                  "), one column per point; it is called with x of shape (" +
                                  std::to_string(n_) + ", " + std::to_string(K) + ")");
        }
        std::copy_n(result.data(), result.size(), out);
    }

    Kept f_;
    Kept jacobian_;
    std::size_t n_;
    std::size_t m_;
};

// Functions in machine code, which are called without the lock; now and then signals are looked
// for, so that Ctrl-C ends long runs that have no points to stop at.
class MachineCode {
  public:
    MachineCode(tx::CFunctions functions, py::object needed)
        : given_(std::move(functions)), needed_(keep(std::move(needed))) {}

    static void f(double t, const double* x, const double* c, double* out, void* context) {
        thread_local SignalCheck signals;
        if (signals.due()) {
            const py::gil_scoped_acquire lock;
            SignalCheck::check();
        }
        const tx::CFunctions& given = static_cast<const MachineCode*>(context)->given_;
        given.f(t, x, c, out, given.context);
    }
    static void jacobian(double t, const double* x, const double* c, double* out, void* context) {
        const tx::CFunctions& given = static_cast<const MachineCode*>(context)->given_;
        given.jacobian(t, x, c, out, given.context);
    }
    static void parameter_jacobian(double t, const double* x, const double* c, double* out,
                                   void* context) {
        const tx::CFunctions& given = static_cast<const MachineCode*>(context)->given_;
        given.parameter_jacobian(t, x, c, out, given.context);
    }
    static void taylor(int order, double t, const double* x, const double* v, const double* c,
                       const double* d, double* out, void* context) {
        const tx::CFunctions& given = static_cast<const MachineCode*>(context)->given_;
        given.taylor(order, t, x, v, c, d, out, given.context);
    }

  private:
    tx::CFunctions given_;
    Kept needed_;
};

using NamedValues = std::vector<std::pair<std::string, double>>;

std::vector<tx::Parameter> named(const NamedValues& values) {
    std::vector<tx::Parameter> parameters;
    for (const auto& [name, value] : values) parameters.push_back({name, value});
    return parameters;
}

template <class Owner>
void own(tx::CFunctions& functions, std::shared_ptr<Owner> owner) {
    functions.context = owner.get();
    functions.owner = std::move(owner);
}

// What Python hands over as a number.
template <class Pointer>
Pointer at_address(std::uintptr_t address) {
    return reinterpret_cast<Pointer>(address);  // NOLINT(performance-no-int-to-ptr)
}

struct Addresses {
    std::uintptr_t f = 0;
    std::uintptr_t jacobian = 0;
    std::uintptr_t parameter_jacobian = 0;
    std::uintptr_t taylor = 0;
};

tx::System from_addresses(const Strings& states, const NamedValues& parameters, const Addresses& at,
                          py::object needed, const std::string& text) {
    using Function = tx::CFunctions::Function;
    tx::CFunctions given;
    given.f = at_address<Function>(at.f);
    given.jacobian = at_address<Function>(at.jacobian);
    given.parameter_jacobian = at_address<Function>(at.parameter_jacobian);
    given.taylor = at_address<tx::CFunctions::TaylorFunction>(at.taylor);
    tx::CFunctions called;
    called.f = MachineCode::f;
    if (given.jacobian != nullptr) called.jacobian = MachineCode::jacobian;
    if (given.parameter_jacobian != nullptr)
        called.parameter_jacobian = MachineCode::parameter_jacobian;
    if (given.taylor != nullptr) called.taylor = MachineCode::taylor;
    own(called, std::make_shared<MachineCode>(std::move(given), std::move(needed)));
    return {states, named(parameters), called, text};
}

tx::System from_callable(const Strings& states, const NamedValues& parameters, py::function f,
                         py::object jacobian, const std::string& text) {
    tx::CFunctions functions;
    functions.block = PythonFunctions::block;
    if (!jacobian.is_none()) functions.block_jacobian = PythonFunctions::block_jacobian;
    own(functions, std::make_shared<PythonFunctions>(std::move(f), std::move(jacobian),
                                                     states.size(), parameters.size()));
    return {states, named(parameters), functions, text};
}

// ---- Runs ----

// Runs without the interpreter's lock.
template <class Run>
auto unlocked(const Run& run) {
    const py::gil_scoped_release released;
    return run();
}

// Called at each point. Now and then it takes the lock, lets signals through and asks whether to go
// on.
class Watch {
  public:
    explicit Watch(py::object progress) : progress_(keep(std::move(progress))) {}

    bool operator()(const tx::Point& point) {
        ++points_;
        if (!check_.ready()) return true;
        const py::gil_scoped_acquire lock;
        SignalCheck::check();
        const py::object answer = (*progress_)(points_, point);
        return answer.is_none() || answer.cast<bool>();
    }

  private:
    Kept progress_;
    std::size_t points_ = 0;
    SignalCheck check_;
};

tx::Direction direction_of(const std::string& name) {
    if (name == "both") return tx::Direction::both;
    if (name == "up") return tx::Direction::up;
    if (name == "down") return tx::Direction::down;
    throw tx::Error("no direction '" + name + "'; known are both, up, down");
}

tx::Detect detect_of(const py::object& what) {
    if (!py::isinstance<py::str>(what)) return tx::Detect::only(what.cast<Strings>());
    const auto name = what.cast<std::string>();
    if (name == "all") return tx::Detect::all();
    if (name == "none") return tx::Detect::none();
    return tx::Detect::only({name});
}

using Watched = std::function<double(const tx::Point&)>;

// A monitor is called with the lock held.
Watched monitor_of(py::function f) {
    return [kept = keep(std::move(f))](const tx::Point& point) {
        const py::gil_scoped_acquire lock;
        return (*kept)(point).cast<double>();
    };
}

template <auto member, class Struct>
void take(Struct& options, const py::handle& value) {
    options.*member = value.template cast<std::remove_reference_t<decltype(options.*member)>>();
}

template <class Struct>
using Setters = std::map<std::string_view, void (*)(Struct&, const py::handle&)>;

// Fills a structure of options from names and values.
template <class Struct>
Struct filled(const py::dict& given, const Setters<Struct>& known) {
    Struct options;
    for (const auto& [key, value] : given) {
        const auto name = key.template cast<std::string>();
        const auto setter = known.find(name);
        if (setter == known.end()) {
            std::string reason = "no option '" + name + "'; known are";
            for (const auto& [other, unused] : known) reason.append(" ").append(other);
            throw tx::Error(reason);
        }
        try {
            setter->second(options, value);
        } catch (const py::cast_error&) {
            throw tx::Error("option '" + name + "' cannot be " +
                            py::repr(value).template cast<std::string>());
        }
    }
    return options;
}

tx::Window window_of(const py::handle& value) {
    const auto [lo, hi] = value.cast<std::pair<double, double>>();
    return {lo, hi};
}

void each_monitor(const py::handle& value,
                  const std::function<void(const std::string&, const Watched&)>& add) {
    for (const auto& [name, f] : value.cast<py::dict>()) {
        add(name.cast<std::string>(), monitor_of(f.cast<py::function>()));
    }
}

const Setters<tx::Options>& run_options() {
    using O = tx::Options;
    using H = const py::handle&;
    static const Setters<O> known = {
        {"start", take<&O::start>},
        {"max_points", take<&O::max_points>},
        {"max_work", take<&O::max_work>},
        {"h_max", take<&O::h_max>},
        {"tol", take<&O::tol>},
        {"mesh_tol", take<&O::mesh_tol>},
        {"m", take<&O::m>},
        {"N_max", take<&O::N_max>},
        {"max_period", take<&O::max_period>},
        {"depth", take<&O::depth>},
        {"verify", take<&O::verify>},
        {"max_branches", take<&O::max_branches>},
        {"max_doublings", take<&O::max_doublings>},
        {"keep_all", take<&O::keep_all>},
        {"norm_bound", take<&O::norm_bound>},
        {"floor", take<&O::floor>},
        {"past_bt", take<&O::past_bt>},
        {"window", [](O& o, H value) { o.window = window_of(value); }},
        {"direction", [](O& o, H value) { o.direction = direction_of(value.cast<std::string>()); }},
        {"detect",
         [](O& o, H value) { o.detect = detect_of(py::reinterpret_borrow<py::object>(value)); }},
        {"at",
         [](O& o, H value) {
             for (const auto& [what, at] : value.cast<std::map<std::string, Numbers>>())
                 o.at(what, at);
         }},
        {"when",
         [](O& o, H value) {
             each_monitor(value, [&](const auto& name, const auto& f) { o.when(name, f); });
         }},
        {"stop_when",
         [](O& o, H value) {
             each_monitor(value, [&](const auto& name, const auto& f) { o.stop_when(name, f); });
         }},
        {"progress",
         [](O& o, H value) { o.on_point = Watch(py::reinterpret_borrow<py::object>(value)); }},
    };
    return known;
}

tx::Options options_of(const py::dict& given) {
    return filled(given, run_options());
}

const Setters<tx::IntegrateOptions>& integrate_options() {
    using O = tx::IntegrateOptions;
    static const Setters<O> known = {
        {"t0", take<&O::t0>},
        {"rel_tol", take<&O::rel_tol>},
        {"abs_tol", take<&O::abs_tol>},
        {"h_max", take<&O::h_max>},
        {"max_steps", take<&O::max_steps>},
        {"sample", take<&O::sample>},
        {"dense", take<&O::dense>},
        {"stiff", take<&O::stiff>},
    };
    return known;
}

const Setters<tx::LyapunovOptions>& lyapunov_options() {
    using O = tx::LyapunovOptions;
    using H = const py::handle&;
    static const Setters<O> known = {
        {"count", take<&O::count>},
        {"transient", take<&O::transient>},
        {"time", take<&O::time>},
        {"interval", take<&O::interval>},
        {"perturbation", take<&O::perturbation>},
        {"method",
         [](O& o, H value) {
             const auto name = value.cast<std::string>();
             if (name != "variational" && name != "nearby") {
                 throw tx::Error("no method '" + name + "'; known are variational, nearby");
             }
             o.method = name == "nearby" ? O::Method::nearby : O::Method::variational;
         }},
        {"integrate",
         [](O& o, H value) { o.integrate = filled(value.cast<py::dict>(), integrate_options()); }},
    };
    return known;
}

// ---- Results ----

// An array over the library's memory, which `owner` keeps alive; nobody may write to it.
py::array_t<double> over(std::span<const double> values, const py::object& owner) {
    py::array_t<double> array(static_cast<py::ssize_t>(values.size()), values.data(), owner);
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

template <class Result>
py::array_t<double> column(const py::object& result, const std::string& name) {
    return over(result.cast<const Result&>().column(name), result);
}

// The states at given times: (n,) for a number, (n, times) for an array of times.
template <class Solution>
py::array_t<double> states_at(const Solution& solution,
                              const py::array_t<double, py::array::forcecast>& times) {
    if (times.ndim() == 0) {
        const Numbers x = solution.at(*times.data());
        return vector(x.size(), x.data());
    }
    if (times.ndim() != 1) throw tx::Error("times are a number or a list of numbers");
    const auto count = times.shape(0);
    py::array_t<double> made;
    for (py::ssize_t k = 0; k < count; ++k) {
        const Numbers x = solution.at(times.at(k));
        if (k == 0) made = py::array_t<double>({static_cast<py::ssize_t>(x.size()), count});
        for (std::size_t i = 0; i < x.size(); ++i) made.mutable_at(i, k) = x[i];
    }
    return made;
}

template <class Range>
auto array_of(const Range& values) {
    using Number = typename Range::value_type;
    return py::array_t<Number>(static_cast<py::ssize_t>(values.size()), values.data());
}

// Members that points and special points share.
template <class T>
void add_solution_members(py::class_<T>& type) {
    type.def("parameter", &T::parameter)
        .def("variable", [](const T& s, const std::string& name) { return s[name]; })
        .def_property_readonly("status", &T::status)
        .def_property_readonly("reason", &T::reason)
        .def_property_readonly("state", [](const T& s) { return array_of(s.state()); })
        .def_property_readonly("period", &T::period)
        .def_property_readonly("eigenvalues", [](const T& s) { return array_of(s.eigenvalues()); })
        .def_property_readonly("multipliers", [](const T& s) { return array_of(s.multipliers()); })
        .def_property_readonly("log_multipliers",
                               [](const T& s) { return array_of(s.log_multipliers()); })
        .def("text", &T::text)
        .def(
            "follow",
            [](const T& s, const std::string& parameter, std::pair<double, double> window,
               const py::dict& options) {
                const auto o = options_of(options);
                return unlocked([&] {
                    return s.follow(parameter, {window.first, window.second}, o);
                });
            },
            "parameter"_a, "window"_a, "options"_a);
}

void add_results(py::module_& m) {
    py::class_<tx::Point> point(m, "Point");
    add_solution_members(point);
    point.def("__bool__", [](const tx::Point& p) { return static_cast<bool>(p); })
        .def_property_readonly("norm", &tx::Point::norm)
        .def_property_readonly(
            "log_multiplier_errors",
            [](const tx::Point& p) { return array_of(p.log_multiplier_errors()); })
        .def_property_readonly("stable", &tx::Point::stable)
        .def_property_readonly("unstable", &tx::Point::unstable)
        .def_property_readonly("min", [](const tx::Point& p) { return array_of(p.min()); })
        .def_property_readonly("max", [](const tx::Point& p) { return array_of(p.max()); })
        .def("at", states_at<tx::Point>, "t"_a);

    py::class_<tx::Special> special(m, "Special");
    add_solution_members(special);
    special.def_property_readonly("id", &tx::Special::id)
        .def_property_readonly("type", &tx::Special::type)
        .def_property_readonly("subtype", &tx::Special::subtype)
        .def_property_readonly("criticality", &tx::Special::criticality)
        .def_property_readonly("error", &tx::Special::error)
        .def_property_readonly("bracket", &tx::Special::bracket)
        .def_property_readonly("tangent",
                               [](const tx::Special& s) { return array_of(s.tangent()); })
        .def_property_readonly("null_vectors", &tx::Special::null_vectors)
        .def_property_readonly("coefficients",
                               [](const tx::Special& s) {
                                   py::dict made;
                                   for (const auto& name : s.coefficients())
                                       made[py::str(name)] = s.coefficient(name);
                                   return made;
                               })
        .def("coefficient_error", &tx::Special::coefficient_error)
        .def("point", &tx::Special::point)
        .def(
            "switch_branch",
            [](const tx::Special& s, const py::dict& options) {
                const auto o = options_of(options);
                return unlocked([&] { return s.switch_branch(o); });
            },
            "options"_a)
        .def(
            "curve",
            [](const tx::Special& s, const std::pair<std::string, std::string>& names,
               std::pair<double, double> first, std::pair<double, double> second,
               const py::dict& options) {
                const auto o = options_of(options);
                return unlocked([&] {
                    return s.follow({names.first, names.second},
                                    {{first.first, first.second}, {second.first, second.second}},
                                    o);
                });
            },
            "names"_a, "first"_a, "second"_a, "options"_a);

    py::class_<tx::Branch>(m, "Branch")
        .def_property_readonly("id", &tx::Branch::id)
        .def_property_readonly("kind", &tx::Branch::kind)
        .def_property_readonly("vary", &tx::Branch::vary)
        .def_property_readonly("parent", &tx::Branch::parent)
        .def("__len__", &tx::Branch::size)
        .def_property_readonly("stop",
                               [](const tx::Branch& b) {
                                   const auto ends = b.stop();
                                   return std::pair(ends[0].str(), ends[1].str());
                               })
        .def_property_readonly("stop_detail", &tx::Branch::stop_detail)
        .def("column", column<tx::Branch>)
        .def_property_readonly("columns", &tx::Branch::columns)
        .def("eigenvalues",
             [](const tx::Branch& b, std::size_t i) { return array_of(b.eigenvalues(i)); })
        .def("point", &tx::Branch::point)
        .def_property_readonly("specials", &tx::Branch::specials)
        .def("text", &tx::Branch::text)
        .def("csv", &tx::Branch::csv)
        .def("json", &tx::Branch::json, "orbits_inline"_a = true);

    py::class_<tx::Diagram>(m, "Diagram")
        .def(py::init<>())
        .def("add", &tx::Diagram::add)
        .def_property_readonly("branches", &tx::Diagram::branches)
        .def_property_readonly("log", &tx::Diagram::log)
        .def("text", &tx::Diagram::text)
        .def("json", &tx::Diagram::json);
}

void add_trajectories(py::module_& m) {
    py::class_<tx::Trajectory>(m, "Trajectory")
        .def("__bool__", [](const tx::Trajectory& t) { return static_cast<bool>(t); })
        .def_property_readonly("status", &tx::Trajectory::status)
        .def_property_readonly("reason", &tx::Trajectory::reason)
        .def("__len__", &tx::Trajectory::size)
        .def_property_readonly("times",
                               [](const py::object& self) {
                                   return over(self.cast<const tx::Trajectory&>().times(), self);
                               })
        .def("column", column<tx::Trajectory>)
        .def("at", states_at<tx::Trajectory>, "t"_a)
        .def_property_readonly("steps", &tx::Trajectory::steps);

    py::class_<tx::Lyapunov>(m, "Lyapunov")
        .def_property_readonly("exponents",
                               [](const tx::Lyapunov& l) { return array_of(l.exponents); })
        .def_property_readonly("spread", [](const tx::Lyapunov& l) { return array_of(l.spread); })
        .def_property_readonly("state", [](const tx::Lyapunov& l) { return array_of(l.state); })
        .def_readonly("time", &tx::Lyapunov::time)
        .def_readonly("steps", &tx::Lyapunov::steps)
        .def_readonly("status", &tx::Lyapunov::status)
        .def_readonly("reason", &tx::Lyapunov::reason);

    py::class_<tx::Equilibria>(m, "Equilibria")
        .def_readonly("points", &tx::Equilibria::points)
        .def_readonly("starts", &tx::Equilibria::starts)
        .def_readonly("fruitless", &tx::Equilibria::fruitless)
        .def("text", &tx::Equilibria::text);
}

tx::Section section_of(const std::string& variable, double value, const py::object& function,
                       int direction, double max_time) {
    tx::Section section{variable, value, {}, direction, max_time};
    if (function.is_none()) return section;
    section.function = [kept = keep(function)](double t, std::span<const double> x) {
        const py::gil_scoped_acquire lock;
        return (*kept)(t, vector(x.size(), x.data())).cast<double>();
    };
    return section;
}

// What systems and forced systems have in common.
template <class T>
void add_system_members(py::class_<T>& type) {
    type.def("parameter", &T::parameter)
        .def("with_values",
             [](const T& s, const NamedValues& values) { return s.with(named(values)); })
        .def(
            "cycle",
            [](const T& s, const Numbers& state, const py::dict& options) {
                const auto o = options_of(options);
                return unlocked([&] { return s.cycle(state, o); });
            },
            "state"_a, "options"_a)
        .def(
            "diagram",
            [](const T& s, const std::string& parameter, const py::object& window,
               const py::dict& options) {
                const auto o = options_of(options);
                const tx::Window w = window_of(window);
                return unlocked([&] { return s.diagram(parameter, w, o); });
            },
            "parameter"_a, "window"_a, "options"_a);
}

void add_searches(py::class_<tx::System>& system) {
    system
        .def("equilibrium",
             [](const tx::System& s, const Numbers& guess, const py::dict& options) {
                 const auto o = options_of(options);
                 return unlocked([&] { return s.equilibrium(guess, o); });
             })
        .def("equilibria",
             [](const tx::System& s, const std::vector<std::pair<double, double>>& bounds,
                const py::dict& options) {
                 const auto o = options_of(options);
                 tx::Box box;
                 for (const auto& [lo, hi] : bounds) box.push_back({lo, hi});
                 return unlocked([&] { return s.equilibria(box, o); });
             })
        .def("cycle_of_period",
             [](const tx::System& s, const Numbers& state, double period, const py::dict& options) {
                 const auto o = options_of(options);
                 return unlocked([&] { return s.cycle(state, period, o); });
             })
        .def("cycle_of_table",
             [](const tx::System& s, const Numbers& times, const std::vector<Numbers>& states,
                const py::dict& options) {
                 const auto o = options_of(options);
                 return unlocked([&] { return s.cycle(times, states, o); });
             })
        .def("forced", [](const tx::System& s, const std::string& frequency,
                          const std::string& period, double fixed, int periods, double t0) {
            return s.forced({frequency, period, fixed, periods, t0});
        });
}

void add_integration(py::class_<tx::System>& system) {
    system
        .def("rhs",
             [](const tx::System& s, const Numbers& x, double t) { return array_of(s.rhs(x, t)); })
        .def("jacobian",
             [](const tx::System& s, const Numbers& x, double t) {
                 const Numbers J = s.jacobian(x, t);
                 return matrix(x.size(), x.size(), J.data());
             })
        .def("integrate",
             [](const tx::System& s, const Numbers& state, double t_end, const py::dict& options) {
                 const auto o = filled(options, integrate_options());
                 return unlocked([&] { return s.integrate(state, t_end, o); });
             })
        .def("section",
             [](const tx::System& s, const Numbers& state, const tx::Section& section,
                std::size_t crossings, const py::dict& options) {
                 const auto o = filled(options, integrate_options());
                 return unlocked([&] { return s.section(state, section, crossings, o); });
             })
        .def("lyapunov", [](const tx::System& s, const Numbers& state, const py::dict& options) {
            const auto o = filled(options, lyapunov_options());
            return unlocked([&] { return s.lyapunov(state, o); });
        });
}

void add_systems(py::module_& m) {
    py::class_<tx::Section>(m, "Section")
        .def(py::init(&section_of), "variable"_a, "value"_a, "function"_a, "direction"_a,
             "max_time"_a);

    py::class_<tx::System> system(m, "System");
    system.def_property_readonly("states", &tx::System::states)
        .def_property_readonly("parameters", &tx::System::parameters)
        .def_static(
            "from_addresses",
            [](const Strings& states, const NamedValues& parameters,
               const std::array<std::uintptr_t, 4>& at, py::object keep, const std::string& text) {
                return from_addresses(states, parameters, {at[0], at[1], at[2], at[3]},
                                      std::move(keep), text);
            },
            "states"_a, "parameters"_a, "addresses"_a, "keep"_a, "text"_a)
        .def_static("from_callable", &from_callable, "states"_a, "parameters"_a, "f"_a,
                    "jacobian"_a, "text"_a);
    add_system_members(system);
    add_searches(system);
    add_integration(system);

    py::class_<tx::ForcedSystem> forced(m, "ForcedSystem");
    forced.def_property_readonly("period", &tx::ForcedSystem::period);
    add_system_members(forced);
}

}  // namespace

PYBIND11_MODULE(_core, m) {
    m.doc() = "The compiled part of tx; use the package.";
    py::register_exception<tx::Error>(m, "Error", PyExc_ValueError);
    add_results(m);
    add_trajectories(m);
    add_systems(m);
}
