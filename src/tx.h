/**
 * @file tx.h
 * tx - numerical study of dynamical systems y' = f(t, y; c).
 *
 * A handle binds a right-hand side f of order n to an integrator. With it, tx integrates
 * trajectories and evaluates them inside each step, finds their crossings with a Poincare
 * section, tabulates them, estimates Lyapunov exponents, integrates variational equations, finds
 * equilibria and periodic orbits with their multipliers, and follows those and their bifurcations
 * in one and two parameters. All arithmetic is in double precision. This is the one public
 * header: it compiles as C99 and as C++17 or later, and every name in it has C linkage.
 *
 * @section tx_example A complete program
 *
 * @code
 * #include <stdio.h>
 * #include "tx.h"
 *
 * // Van der Pol's oscillator, x'' = (1 - x^2) x' - x, as two equations of first order.
 * static void van_der_pol(double t, double* y, double* f) {
 *     (void)t;
 *     f[0] = y[1];
 *     f[1] = (1 - y[0] * y[0]) * y[1] - y[0];
 * }
 *
 * int main(void) {
 *     double t = 0, y[2] = {2, 0};
 *     Trajex* tx = TXOpenTrajex(van_der_pol, 2, 1e-9, 0.01);  // order, RelTol, first step
 *     TXSetAbsTol(tx, 1e-9);            // y[1] passes through zero
 *     tx->TerminateOnFatalError = 0;    // a failure is recorded and reported by the result
 *     if (TXIntegrate(tx, &t, 10, y))
 *         printf("y(%g) = %.9f %.9f\n", t, y[0], y[1]);
 *     else
 *         fprintf(stderr, "%s\n", TXStrErrorTrajex(tx));
 *     return !TXCloseTrajex(tx);
 * }
 * @endcode
 *
 * @section tx_results Results and errors
 *
 * A function of type int returns 1 when it did its work and 0 when it did not, unless its
 * description says otherwise. Failures have a number and a message, see ::TrajexFatalError. What
 * a failure does is the policy of the record that it is reported on, TerminateOnFatalError:
 * - non-zero, the default: a report is printed on the error stream and the process ends with
 *   status 1;
 * - zero: the number is stored in ErrorCode, nothing is printed, and the function returns 0.
 *
 * *Entry step.* A function that takes a handle begins by setting ErrorCode to 0 (the two queries
 * TXErrorTrajex and TXStrErrorTrajex leave it, and functions without an entry step say so).
 * ErrorCode therefore belongs to the most recent call alone. That includes the calls that tx
 * makes on the handle inside a larger operation: the code of an inner failure lasts until the
 * next inner call, so the result, and not ErrorCode, tells whether an operation succeeded.
 *
 * A null handle is code 1, reported without a record: it is always printed and always ends the
 * process. So is a missing variational sub-record where an operation needs one.
 *
 * The sub-record `tx->TX` is a record with an ErrorCode of its own, which the operations that use
 * it clear too, and a policy of its own, initially to end the process. An application that
 * records errors sets both, the second one after each TXVarOpenTrajex:
 * @code
 * tx->TerminateOnFatalError = 0;
 * tx->TX->TerminateOnFatalError = 0;
 * @endcode
 *
 * Below, `tx` is always the handle, and "Codes" lists what a function itself reports, on `tx`
 * unless another record is named; code 1 for a null handle or a missing sub-record goes without
 * saying.
 *
 * @section tx_callbacks Callbacks and exceptions
 *
 * A callback reads its arguments and writes its result; a state that it is handed is not to be
 * modified, though the type carries no const. It may use other handles, but must not start an
 * operation on the handle that called it (a user output may read it and call the reports). While
 * tx forms difference quotients, the application's parameter variables hold perturbed values.
 *
 * A C++ exception thrown by a callback passes through every operation to the caller. (Frames of C
 * code on the way must have been compiled with -fexceptions.) Nothing leaks, perturbed components
 * and parameters have their exact values again, nparam and the sub-record's rows are as before,
 * and the handle remains usable. The caller's variables hold intermediate values, except where
 * the description of the function promises more. A step that fails or is abandoned sets StepTaken
 * to 0: dense output then refuses until another step has succeeded.
 *
 * A right-hand side that yields NaN or infinity makes the step smaller until code 29 ends it; in
 * a Newton search a residual that is not finite counts as a failed iteration.
 *
 * @section tx_threads Threads
 *
 * Different handles may be used by different threads at the same time; they share nothing but the
 * error stream (TXSetErrorOutput) and, in the short-named functions, the one handle of the
 * process. A handle with its sub-record and its bifurcation record is used by one thread at a
 * time. Parameter variables belong to the application: handles that work concurrently need
 * variables of their own, since tx perturbs and moves them.
 *
 * @section tx_data Data
 *
 * Vectors are arrays of doubles; matrices are arrays of pointers to their rows; both are indexed
 * from 0. Nothing that an application passes is kept beyond the call, with these exceptions,
 * which have to live as long as the handle, or until they are replaced: callbacks, parameter
 * variables, and the error stream. Strings are read during the call only. Streams remain the
 * caller's: tx neither opens, flushes nor closes a stream that it is given. What a record points
 * to belongs to the record.
 *
 * Time, step sizes and periods are in the time unit of f; states and parameters are in the units
 * of the application. Perturbations and absolute tolerances are added to, or compared with, every
 * component alike, so a system is best scaled to components of comparable size. Time runs
 * forward: step sizes are positive.
 *
 * @section tx_tolerances Choosing tolerances
 *
 * TXOpenTrajex derives the tolerances of the section search and of the Newton searches, and the
 * perturbations of difference quotients, as fixed multiples of RelTol; later changes of RelTol do
 * not move them. At RelTol = 1e-6, LambdaNewtRelTol is 0.5: a bifurcation then counts as located
 * while the real part of the critical eigenvalue is still anything up to 0.5. Work on
 * bifurcations needs a small RelTol and non-zero AbsTol, NewtAbsTol and LambdaNewtAbsTol. A good
 * start for systems of order one is RelTol = AbsTol = 1e-9 (set before the sub-record is opened,
 * which takes copies), NewtAbsTol = 1e-7, LambdaNewtRelTol = 1e-6, and perturbations of 1e-6.
 */
#ifndef TX_H
#define TX_H

#include <stdio.h>

#define TX_VERSION_MAJOR 0
#define TX_VERSION_MINOR 1
#define TX_VERSION_PATCH 0
#define TX_VERSION "0.1.0"

/*
 * TX_SHARED says that an application links the shared library, which matters on Windows only.
 * TX_NO_SHORT_NAMES hides the single-instance interface, TX_NO_MATHERR the mathematics hook.
 */
#if defined(TX_BUILDING_SHARED) && defined(_WIN32)
#define TX_API __declspec(dllexport)
#elif defined(TX_SHARED) && defined(_WIN32)
#define TX_API __declspec(dllimport)
#elif defined(__GNUC__)
#define TX_API __attribute__((visibility("default")))
#else
#define TX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Types --------------------------------------------------------------------------------- */

/** The handle: one dynamical system with its integrator, settings and optional sub-records. */
typedef struct Trajex_t Trajex;

/** The bifurcation record: the current point of a continuation path, and its classification. */
typedef struct TrajexBif_t TrajexBif;

/**
 * A Jacobian. As `jac` it writes J[i][k] = df_i/dy_k for i, k < n; as `paramjac` it writes
 * J[i][q] = df_i/dc_q for i < n and every registered parameter q < nparam, whether active or not.
 * The rows are longer than that, and y may be: read the first n components, write no more
 * columns.
 */
typedef void (*jac_t)(double t, double* y, double** J);

/**
 * A report of the application's own during a continuation run. `tx->txb` holds the point to be
 * reported; `file` is the stream that was passed to the run, null included.
 */
typedef void (*output_t)(Trajex* tx, FILE* file);

/**
 * The handle, and also the variational sub-record `TX` of a handle.
 *
 * Every field may be read at any time between calls. Fields marked [set] may also be assigned
 * between calls, whether or not they have a setter (an assigned value is not checked); all others
 * are written by tx alone. Pointers are never to be redirected or freed. "Default" is the value
 * after TXOpenTrajex. n stands for `order`; in a sub-record the vectors hold the extended vector
 * [y | Phi | S] described at TXVarOpenTrajex, and n is then its length.
 *
 * tfirst, tlast, yfirst, ylast, the first eight rows of k, and StepTaken describe one and the
 * same step: the last one accepted.
 */
struct Trajex_t {
    /** |y6 - y5| of the last attempted step, component by component; n. Written by each step. */
    double* abs_err;
    /** A spare vector of n, which no operation reads or writes. */
    double* rel_err;
    /** Solution of order 5 of the last attempt; n. Written by each step. */
    double* y5;
    /** Solution of order 6, the one that is propagated; n. Written by steps and dense output. */
    double* y6;
    /** State at the middle of the last step; n. Written by dense output. */
    double* ynp1d2;
    /** State at tfirst; n. Written by each accepted step, read by dense output. */
    double* yfirst;
    /** State at tlast; n. Written by each accepted step, read by dense output. */
    double* ylast;
    /** State from which a step starts; n. Work of steps and dense output. */
    double* y0;
    /** Argument of a stage; n. Work of steps and dense output. */
    double* yw;
    /** A point of the hyperplane section; n. TXSetAutoCut writes it. Work in a sub-record. */
    double* istate;
    /** Unit normal of the hyperplane section; n. TXSetAutoCut writes it. Work in a sub-record. */
    double* ivector;
    /**
     * Derivatives, 12 rows of n in one piece (row r is k + r n): rows 0 to 7 are the stages of
     * the last step, rows 8 to 11 the further evaluations of dense output.
     */
    double* k;
    /**
     * In a sub-record: square work matrix of (order + nparam + 1) rows, order being that of the
     * handle: the Jacobian, the parameter columns beside it, borders. In a handle null.
     */
    double** j;
    /** Addresses of the nparam parameter variables. TXVarOpenTrajex fills it; default null. */
    double** c;
    /** Selected columns of a table; n + 1 flags. Work of the table writers. */
    int* output;
    /** Conversions of the table columns, 9 characters each; 9 n + 9. Work of the table writers. */
    char* form;
    /**
     * One flag per parameter, 1 for an active one, whose sensitivity is carried by the
     * variational integration. TXVarOpenTrajex clears them; locations, checks and runs set those
     * of the parameters they vary, and leave them so. [set] each flag to 0 or 1. Default null.
     */
    char* cp;
    /** [set] Absolute tolerance of the step error; TXSetAbsTol. Default 0. */
    double AbsTol;
    /** [set] Relative tolerance of the step error; TXSetRelTol. Default: that of the opening. */
    double RelTol;
    /**
     * [set] Absolute tolerance of the Newton searches for equilibria, orbits and test orbits, and
     * of the correctors of one-parameter runs; a term of the smallest step of a run. Default 0,
     * which few problems bear: a component near zero then has next to no tolerance (and one that
     * is exactly zero none, and is not examined). In particular a periodic orbit on a section
     * through the zero of a coordinate, such as y[0] = 0, can never converge with NewtAbsTol = 0,
     * since y[0] is 0 up to CutEps there.
     */
    double NewtAbsTol;
    /** [set] Relative tolerance of the same searches; TXSetNewtTol. Default 10000 RelTol. */
    double NewtRelTol;
    /**
     * [set] Absolute tolerance of the criterion in locations, and of every equation in
     * two-parameter runs. Default 0.
     */
    double LambdaNewtAbsTol;
    /** [set] Relative tolerance of the same. Default 500000 RelTol. */
    double LambdaNewtRelTol;
    /**
     * [set] Width of the zone beyond a section in which a crossing counts as found, in units of
     * the cut value; TXSetCut. Default 10 RelTol.
     */
    double CutEps;
    /**
     * [set] Perturbation of each component in numerical Jacobians, and of all arguments in
     * TXNumCutJac. TXVarOpenTrajex sets it when no `jac` is given. Default 1000 RelTol.
     */
    double JacPert;
    /**
     * [set] Perturbation of each parameter in numerical parameter Jacobians. TXVarOpenTrajex sets
     * it when there are parameters and no `paramjac`. Default 1000 RelTol.
     */
    double ParamJacPert;
    /**
     * [set] Perturbation of states, parameters and periods in the gradient of a bifurcation
     * criterion (locations and two-parameter runs). Default 1000 RelTol.
     */
    double LambdaPert;
    /** Time at which the last accepted step starts. Default 0. */
    double tfirst;
    /** Time at which the last accepted step ends. Default 0. */
    double tlast;
    /** [set] Step size to try next, positive; kept from call to call. Default: the opening's h. */
    double h;
    /** [set] Largest step size; no limit when not positive; TXSetMaxStep. Default 0. */
    double hmax;
    /** Order n of the system, from the opening. */
    int order;
    /**
     * Number of registered parameters; TXVarOpenTrajex. 0 while an orbit search runs. Default 0.
     */
    int nparam;
    /**
     * [set] Most bisections of one crossing, 0 for as many as the resolution of t allows;
     * TXSetMaxPoincareSteps. Default 100.
     */
    int MaxPoincareSteps;
    /**
     * [set] Most steps of TXAutoOrbit on its way to the section, and p times as many around one
     * period; TXSetMaxPeriodSteps. Default 1000.
     */
    int MaxPeriodSteps;
    /** [set] Most iterations of Newton and secant searches; TXSetMaxNewtSteps. Default 10. */
    int MaxNewtSteps;
    /** [set] Steps of a continuation run. Default 1000. */
    int MaxContSteps;
    /** [set] Non-zero: TXAutoCont and TXNonAutoCont classify what they locate. Default 1. */
    int CheckBifs;
    /** 1 once TXSetAutoCut has defined the hyperplane section. Default 0. */
    int CutSurfaceDefined;
    /** [set] Error policy: non-zero prints and ends the process, 0 records. Default 1. */
    int TerminateOnFatalError;
    /**
     * 1 while the record describes an accepted step; cleared by a failed or abandoned one.
     * Default 0.
     */
    int StepTaken;
    /** Code of the most recent call; see "Results and errors". Default 0. */
    int ErrorCode;
    /**
     * [set] Right-hand side: writes f(t, y) into f[0 .. n-1]. Another system of the same order
     * may be put in its place; dense output then has to wait for its first step. Null in a
     * sub-record.
     */
    void (*fcn)(double t, double* y, double* f);
    /**
     * [set] Cut function of the Poincare section, null for the hyperplane; TXSetCut. Default
     * null.
     */
    double (*cut)(double t, double* y);
    /** [set] Jacobian df/dy, null for difference quotients; TXVarOpenTrajex. Default null. */
    jac_t jac;
    /** [set] Jacobian df/dc, null for difference quotients; TXVarOpenTrajex. Default null. */
    jac_t paramjac;
    /**
     * Variational sub-record, opened and closed by TXVarOpenTrajex and TXVarCloseTrajex, and
     * closed with the handle. Default null.
     */
    Trajex* TX;
    /**
     * [set] Bifurcation record. One-parameter runs create it if there is none; an application may
     * attach one that it made with TXCreateBif for this handle. Destroyed with the handle.
     * Default null.
     */
    TrajexBif* txb;
};

/**
 * The bifurcation record. n and m are the `order` and `nparam` that the handle had when the
 * record was created; its vectors are not resized later.
 *
 * Runs and locations fill it; reports, criteria and checks read it; between calls an application
 * may read everything and may assign the values, not the pointers, for instance to start a
 * two-parameter run or a location from a point of its own. Fields without a stated initial value
 * have none until the operation named has written them.
 */
struct TrajexBif_t {
    /** The handle for which it was created. */
    Trajex* tx;
    /** n. */
    int order;
    /**
     * Type of the bifurcation, an index into ::TrajexBifName; 0 when not classified, as
     * initially, at the start of a one-parameter run and after a location. Checks write it.
     */
    int biftype;
    /**
     * Time at which the orbit passes y. Runs over orbits write it before they locate; initially
     * 0, and left alone by TXEquiCont.
     */
    double t;
    /** State of the current point; n. Runs and locations. */
    double* y;
    /**
     * (n + m + 1) rows of (n + m + 1). The leading n x n block is the linearisation at the point
     * after a location: the monodromy matrix of an orbit, the Jacobian of an equilibrium. Work of
     * the runs otherwise.
     */
    double** Phi;
    /** Period of the orbit; initially 0, and not used for equilibria. Runs and locations. */
    double T;
    /** Values of all m parameters at the point. Runs and locations. */
    double* c;
    /** Real parts of the n eigenvalues (equilibrium) or multipliers (orbit). Runs, locations. */
    double* er;
    /** Their imaginary parts; n. */
    double* ei;
    /** Direction of the bifurcating branch; n. Checks. */
    double* trans;
    /** Direction of the branch that was followed; n. TXCheckBif, except at a saddle-node. */
    double* tang;
    /**
     * State part of the tangent with which the run arrived; n. Runs over orbits, for TXCheckBif.
     */
    double* intang;
    /**
     * Test orbit displaced along the critical eigenvector; n. TXCheckBif, as for all that follow.
     */
    double* top;
    /** Test orbit displaced against it; n. */
    double* bot;
    /** Test orbit at the lowered parameter; n. Not at a saddle-node. */
    double* left;
    /** Test orbit at the raised parameter; n. Not at a saddle-node. */
    double* right;
    /** Parameter value of top. */
    double ctop;
    /** Parameter value of bot. */
    double cbot;
    /** Parameter value of left. */
    double cleft;
    /** Parameter value of right. */
    double cright;
    /** Period of top. */
    double Ttop;
    /** Period of bot. */
    double Tbot;
    /** Period of left. */
    double Tleft;
    /** Period of right. */
    double Tright;
    /**
     * The test orbit on the side from which the run came: 1 top, 2 bottom, 3 left, 4 right; 0
     * after a location.
     */
    int indir;
    /**
     * cindi[0], the kind of path: 0 none, 1 orbit in one parameter, 2 orbit in two, 3 equilibrium
     * in one, 4 equilibrium in two; initially 0. cindi[1] and cindi[2] are the indices of the
     * continued parameters in `tx->c`. Runs write them, reports read them.
     */
    int cindi[3];
    /** Number of the step, printed by the reports; initially 0. Runs. */
    int steps;
    /**
     * Text behind the name of the type in the bifurcation report: icon and numbers of stable
     * multipliers on either side. Checks.
     */
    char btype[16];
};

/* ---- Tables -------------------------------------------------------------------------------- */

/**
 * @defgroup tx_tables Public tables
 * @{
 */

/**
 * The messages, indexed by error code. They are part of the interface as they are spelt.
 *
 * | Code | Message | Reported by |
 * |-----:|---------|-------------|
 * |  0 | No error | |
 * |  1 | Trajex not opened | any function given a null handle or lacking the sub-record |
 * |  2 | Trajex already opened | reserved |
 * |  3 | Not enough memory | openings, and operations that take work memory |
 * |  4 | Order of dynamical system not positive | TXOpenTrajex |
 * |  5 | Tolerance not positive | TXOpenTrajex, TXSetRelTol, TXSetAbsTol |
 * |  6 | Timestep guess not positive | reserved |
 * |  7 | Negative time step attempted | TXOpenTrajex, integrations, TXNonAutoOrbit, TXLyapCalc |
 * |  8 | No Poincare-section defined | TXAutoCut, TXCutSurface, TXAuto2DCont, TXLocateBif, checks |
 * |  9 | Attempt to interpolate outside interval | reserved |
 * | 10 | Fatal error equilibrium state | TXSetAutoCut |
 * | 11 | Max time step not positive | TXSetMaxStep |
 * | 12 | No step taken before interpolation | TXInterpolate, TXVarInterpolate |
 * | 13 | Unable to bracket Poincare section | Poincare steps, TXAutoCont |
 * | 14 | No Variational equation specified | reserved |
 * | 15 | Unable to open Trajex substructure | TXVarOpenTrajex |
 * | 16 | Poincare tolerance not positive | TXSetCut |
 * | 17 | Newton tolerance not positive | TXSetNewtTol |
 * | 18 | Poincare plane not reached within MaxPeriodSteps | reserved |
 * | 19 | Maximum number of Newton iterations exceeded | reserved |
 * | 20 | Equilibrium find while searching for periodic solution | TXAutoOrbit |
 * | 21 | Too many iterations in Housholder QR decomposition | Hqr |
 * | 22 | Singular matrix in LU decompostition | LUdcmp |
 * | 23 | Pertubation for Jacobian calculation not positive | TXVarOpenTrajex, TXLyapCalc |
 * | 24 | Negative number of parameter(s) | TXVarOpenTrajex, TXLyapCalc |
 * | 25 | Unable to open output file | table writers, TXLyapCalcFile |
 * | 26 | Wrong number of parameters | TXVarOpenTrajex, runs, TXLyapCalc |
 * | 27 | Bad mode specification | reserved |
 * | 28 | No Trajex Bifurcation structure specified | two-parameter runs, locations, checks |
 * | 29 | Minimum stepsize reached | steps, integration, runs |
 * | 30 | No Convergense in Newton iteration | equilibria, orbits, TXLocateEquiBif |
 */
TX_API extern const char* const TrajexFatalError[31];

/**
 * Names of the bifurcation types, indexed by biftype: 0 "NOT DETERMINED", 1 "TORUS",
 * 2 "TRANSCRITICAL", 3 "SADDLE-NODE", 4 "PERIOD DOUBLING", 5 "PITCHFORK", 6 "HOPF".
 */
TX_API extern const char* const TrajexBifName[7];

/**
 * Icons of the types, for btype, where the top test orbit has the larger parameter value, that
 * is, where the branch opens upwards in the parameter; null for type 6.
 */
TX_API extern const char* const TrajexBifIconLeft[7];

/** Icons of the types where it has not; null for type 6. */
TX_API extern const char* const TrajexBifIconRight[7];

/** @} */

/* ---- Handle and settings ------------------------------------------------------------------- */

/**
 * @defgroup tx_handle Handle and settings
 * @{
 */

/**
 * Opens a handle. Opening also directs the error stream to standard error, so TXSetErrorOutput
 * comes after it.
 *
 * @param fcn    the right-hand side, which writes f(t, y) into its third argument
 * @param order  number n of equations, at least 1
 * @param RelTol relative tolerance of a step, not negative; it also fixes the derived tolerances
 *               and perturbations (see "Choosing tolerances"). With 0, and AbsTol at 0, every step
 *               is accepted as it is.
 * @param h      size of the first step to try, positive
 * @return the handle, to be closed by TXCloseTrajex
 *
 * Codes, in this order and without a record, so that the process ends: 4 for the order, 5 for a
 * tolerance that is negative or NaN, 7 for a step that is not positive, 3 for lack of memory.
 */
TX_API Trajex* TXOpenTrajex(void (*fcn)(double t, double* y, double* f), int order, double RelTol,
                            double h);

/**
 * Closes a handle with its sub-record and its bifurcation record, and releases their memory. The
 * handle is not to be used again.
 * @return 1
 */
TX_API int TXCloseTrajex(Trajex* tx);

/** @return the order n of the system */
TX_API int TXOrder(Trajex* tx);

/**
 * Sets hmax, the largest step size. (To lift the bound, assign 0 to the field.)
 *
 * Codes: 11 when hmax is not positive; the bound stays as it was.
 */
TX_API int TXSetMaxStep(Trajex* tx, double hmax);

/**
 * Sets RelTol, the relative tolerance of a step, and nothing that was derived from it. The
 * sub-record keeps its own copy, `tx->TX->RelTol`.
 *
 * Codes: 5 when RelTol is negative or NaN; 0 is accepted.
 */
TX_API int TXSetRelTol(Trajex* tx, double RelTol);

/**
 * Sets AbsTol, the absolute tolerance of a step. Give one wherever a component passes through
 * zero. The sub-record keeps its own copy, `tx->TX->AbsTol`.
 *
 * Codes: 5 when AbsTol is negative or NaN; 0 is accepted.
 */
TX_API int TXSetAbsTol(Trajex* tx, double AbsTol);

/**
 * Sets NewtRelTol, the relative tolerance of the Newton searches; NewtAbsTol is set by
 * assignment.
 *
 * Codes: 17 when NewtRelTol is not positive.
 */
TX_API int TXSetNewtTol(Trajex* tx, double NewtRelTol);

/**
 * Sets MaxPoincareSteps. A negative n is refused quietly: result 0, ErrorCode 1, the limit as it
 * was, nothing printed and no end of the process under either policy.
 */
TX_API int TXSetMaxPoincareSteps(Trajex* tx, int n);

/** Sets MaxPeriodSteps; a negative n is refused as by TXSetMaxPoincareSteps. */
TX_API int TXSetMaxPeriodSteps(Trajex* tx, int n);

/** Sets MaxNewtSteps; a negative n is refused as by TXSetMaxPoincareSteps. */
TX_API int TXSetMaxNewtSteps(Trajex* tx, int n);

/** @} */

/* ---- Errors -------------------------------------------------------------------------------- */

/**
 * @defgroup tx_errors Errors
 * @{
 */

/**
 * Reports a failure: the one place that every error of tx goes through, open to applications that
 * want theirs treated alike. Without a handle it prints
 *
 *     ERROR in tx (<build date>) line <lineno>
 *     '<where>': <message>
 *
 * and with a handle whose policy is to terminate
 *
 *     Error in tx (<build date>) line <lineno>
 *     '<where>': <message> (<text of errno, when errno is not 0>)
 *     Trajex Closed
 *
 * on the error stream, flushes it and ends the process with status 1. The text of errno may stem
 * from an earlier call of the system.
 *
 * @param tx     the record that the failure concerns, or null
 * @param lineno line of the source that reports
 * @param msgno  error code, an index into ::TrajexFatalError
 * @param where  name of the reporting function
 * @return 0, with msgno in ErrorCode, when the record has TerminateOnFatalError = 0; otherwise
 *         the function does not return
 */
TX_API int TXFatalError(Trajex* tx, int lineno, int msgno, const char* where);

/**
 * Chooses the error stream of the process, which all handles share; null means standard error. It
 * stays the caller's and has to remain open until it is replaced. Every opening of a handle or of
 * a sub-record goes back to standard error.
 * @return 1
 */
TX_API int TXSetErrorOutput(FILE* where);

/**
 * @return the code that the last call on this handle left in ErrorCode; 0 for none. The code is
 *         not cleared.
 */
TX_API int TXErrorTrajex(Trajex* tx);

/**
 * The message of that code. A null handle is reported under the name "TXStrError".
 * @return a text of ::TrajexFatalError, valid for ever and neither to be changed nor freed
 */
TX_API char* TXStrErrorTrajex(Trajex* tx);

#if !defined(TX_NO_MATHERR)
#if !defined(DOMAIN)
/**
 * Argument of the mathematics hook, where the C library does not declare it. `type` is 1 domain,
 * 2 singularity, 3 overflow, 4 underflow, 5 total and 6 partial loss of significance.
 */
struct exception {
    int type;
    char* name;
    double arg1;
    double arg2;
    double retval;
};
#endif
/**
 * The System V hook for errors of the mathematics functions. Underflow returns 0, which asks for
 * the default treatment; anything else prints a report on the error stream and ends the process
 * with status 1, whatever a handle's policy. C libraries of today no longer call the hook.
 */
TX_API int matherr(struct exception* x);
#endif

/** @} */

/* ---- Integration --------------------------------------------------------------------------- */

/**
 * @defgroup tx_integration Integration
 * @{
 */

/**
 * Takes one accepted step with Verner's embedded pair of orders 5 and 6 in eight stages; the
 * solution of order 6 is propagated. (J. H. Verner, SIAM J. Numer. Anal. 15 (1978) 772-790; the
 * pair of DVERK: Hull, Enright and Jackson, University of Toronto, TR 100 (1976).)
 *
 * The first attempt has the size min(h, hmax). With e the difference of the two solutions, an
 * attempt is accepted when
 *
 *     err = sqrt( sum_i ( e_i / (AbsTol + |y_i| RelTol) )^2 ) <= 1,
 *
 * and accepted or not, the next size is h (0.625 / err^(1/4) + 0.2), at most hmax. When err is 0,
 * it is h again for the first 100 steps in a row, and then 2 h, at most hmax; with RelTol and
 * AbsTol at 0 it is always h again. An attempt ends at the rounded t + h, and its h is the distance
 * to there, which matters where t is so large that the two differ. The sum is not divided by n. A
 * component without any error counts 0 even if its weight is 0; an error over a zero weight, and
 * one that is not finite, reject the attempt with the factor 0.2. An attempt costs eight
 * evaluations of f.
 *
 * @param t0 time; advanced to the end of the step
 * @param y  state, n; advanced with it
 *
 * After a step, h is the size to try next, and tfirst, tlast, yfirst, ylast and k describe the
 * step for TXInterpolate; StepTaken is 1.
 *
 * Codes: 29 when the step has become too small to move t. Then, and when f throws, `*t0`, y and h
 * are those of entry, and StepTaken is 0.
 */
TX_API int TXStep(Trajex* tx, double* t0, double* y);

/**
 * Integrates to a given time. The steps are those of TXStep; the last one is not shortened but
 * runs past t1, and the state at t1 is taken from its dense output. TXInterpolate is then
 * available over the whole last step, from tfirst <= t1 to tlast >= t1.
 *
 * @param t0 time; on success exactly t1
 * @param t1 time to reach, not before `*t0`. With t1 equal to `*t0` nothing is done.
 * @param y  state, n; on success that at t1
 *
 * Codes: 7 when t1 lies before `*t0`, is infinite or NaN, with nothing changed; 29 as for TXStep,
 * and as for TXInterpolate, under that name, also with `*t0`, y and h of entry.
 */
TX_API int TXIntegrate(Trajex* tx, double* t0, double t1, double* y);

/**
 * Dense output: the state at any time of the last accepted step, to order 6, from a polynomial of
 * degree 6 on the stages and four more evaluations of f, made anew by every call. (W. H. Enright,
 * K. R. Jackson, S. P. Norsett and P. G. Thomsen, ACM Trans. Math. Software 12 (1986) 193-218.)
 *
 * @param t a time in [tfirst, tlast]; outside, the polynomial extrapolates without notice
 * @param y receives the state; n
 *
 * The step remains described, so it can be asked again.
 *
 * Codes: 12 when there is no step to interpolate (none yet, or the last one failed); 29 when the
 * state is not finite, because f is not at one of the four evaluations. y is then not written.
 */
TX_API int TXInterpolate(Trajex* tx, double t, double* y);

/** @} */

/* ---- Poincare sections --------------------------------------------------------------------- */

/**
 * @defgroup tx_sections Poincare sections
 *
 * A section is the zero set of a cut value: that of the function `cut`, or, while `cut` is null,
 * the signed distance TXAutoCut from a hyperplane. Crossings count in both directions.
 * @{
 */

/**
 * Sets the section.
 *
 * @param cutfcn the cut function, or null for the hyperplane of TXSetAutoCut, which outlasts any
 *               function that takes its place
 * @param eps    CutEps: how far beyond the section, in units of the cut value, a crossing may be
 *               placed; positive
 *
 * Codes: 16 when eps is not positive; nothing is changed.
 */
TX_API int TXSetCut(Trajex* tx, double (*cutfcn)(double t, double* y), double eps);

/**
 * Defines the hyperplane through y, orthogonal to the flow there. It is used while `cut` is null.
 * @param t time at which f is evaluated
 * @param y a point of the hyperplane, n
 *
 * Codes: 10 when f vanishes at y or is not finite; its size does not matter.
 * CutSurfaceDefined is as before, but point and normal are already overwritten: define the plane
 * again before using it.
 */
TX_API int TXSetAutoCut(Trajex* tx, double t, double* y);

/**
 * The cut value of the hyperplane.
 * @param t not used
 * @param y state, n
 * @return the distance of y from the plane, positive on the side to which the flow points; 0
 *         after code 8 (no hyperplane defined)
 */
TX_API double TXAutoCut(Trajex* tx, double t, double* y);

/**
 * Copies the hyperplane: a point of it into `state`, its unit normal into `normal`; n each.
 *
 * Codes: 8 when none is defined.
 */
TX_API int TXCutSurface(Trajex* tx, double* state, double* normal);

/**
 * Takes one step and, if the cut value changed sign over it, places t and y at the crossing,
 * found by bisection on the dense output. To iterate the Poincare map, call it until it returns
 * 1.
 *
 * @param t time; advanced to the crossing, or else to the end of the step
 * @param y state, n; advanced with it
 * @return 1 at a crossing; 0 when the step did not cross, with ErrorCode 0, or failed
 *
 * The point returned lies beyond the section by less than CutEps, so that the next call does not
 * find the same crossing. A starting point exactly on the section counts as on the positive side;
 * a step that ends exactly on it has not crossed, and a NaN is never a crossing.
 *
 * Codes: 13 when MaxPoincareSteps bisections, or the resolution of t, do not suffice (t and y are
 * those of the last one; CutEps is then too small for the scale of the cut value); 29 from the
 * step, or when dense output is not finite (t and y are then the last that were); 8 when there is
 * neither a cut function nor a hyperplane: the cut value then counts as 0.
 */
TX_API int TXPoincareStep(Trajex* tx, double* t, double* y);

/**
 * Moves a point on or near the section to the point just beyond it, between 0 and CutEps in the
 * direction of motion: one TXStep, then secant iterations on its dense output, which may
 * extrapolate, at most MaxNewtSteps + 1 of which are tested.
 *
 * @param t time; receives that of the point
 * @param y state, n; receives the point
 * @return 1, or 0 without convergence, also where the cut value is constant or not a number; t and
 *         y are then those of the last iterate, which follows the last one tested, or of the last
 *         one whose state is finite
 *
 * A service of the orbit operations, without an entry step: it reports nothing of its own, but
 * its step may (code 29).
 */
TX_API int CLOSESTCUT(Trajex* tx, double* t, double* y);

/** @} */

/* ---- Tables and Lyapunov exponents --------------------------------------------------------- */

/**
 * @defgroup tx_sampling Tables and Lyapunov exponents
 *
 * A table samples a trajectory at n + 1 equally spaced times, from the current time to t1, by
 * dense output; the integration chooses its steps freely. A text table has one row per sample and
 * no heading. `format` has one character per column, the time first and then the components:
 *
 *     '1' .. '9'       a column in e-notation with so many decimals, and a blank: "%12.6e " for '6'
 *                      (digit d gives precision d and width d + 6)
 *     anything else    no such column; columns beyond the end of the string do not appear either
 *
 * For n = 2, "166" gives the time with one decimal and both components with six:
 *
 *     0.0e+00 2.000000e+00 0.000000e+00
 *
 * @{
 */

/**
 * Writes a table into a file, which is created or emptied.
 *
 * @param filename name of the file
 * @param format   columns, see above
 * @param t        start time; on return the time of the last sample
 * @param t1       end time
 * @param n        number of intervals. If n < 1, or if (t1 - *t) / n is not positive and finite,
 *                 only the starting point is written and the result is 1.
 * @param y        start state, of `order` components; on return that of the last sample
 *
 * Codes: 3 (work memory); 25 when the file cannot be opened, before anything is integrated, or
 * when, at the end, it turns out not to have been written in full; 29 from a step that failed
 * (under the name "TXStep"), or when dense output is not finite. The table then ends there, and t
 * and y are those of the last sample written.
 */
TX_API int TXftablef(Trajex* tx, const char* filename, const char* format, double* t, double t1,
                     long n, double* y);

/**
 * Writes the same table onto an open stream, which it neither flushes nor closes: tables may
 * follow one another. Otherwise as TXftablef.
 * @param file the stream
 */
TX_API int TXftablea(Trajex* tx, FILE* file, const char* format, double* t, double t1, long n,
                     double* y);

/**
 * Hands each sample to a function instead. Otherwise as TXftablef, without code 25.
 * @param g called with the time and the state of each of the n + 1 samples; the state is tx's own
 *           and lasts for the call
 */
TX_API int TXftableg(Trajex* tx, double* t, double t1, long n, double* y,
                     void (*g)(double t, double* y));

/**
 * Estimates the nn largest Lyapunov exponents, in bits per unit of time (multiply by ln 2 for
 * nats). nn perturbed copies of the state are integrated beside it; after each interval their
 * separations are orthonormalised and the logarithms of the lengths summed. (G. Benettin,
 * L. Galgani, A. Giorgilli and J.-M. Strelcyn, Meccanica 15 (1980) 9-20 and 21-30.)
 *
 * @param t           time; advanced by (trans_steps + lyap_steps) intervals
 * @param y           state, n; advanced with it
 * @param eps         length of the perturbations, positive: small against the attractor, large
 *                    against the integration error
 * @param lyap_dt     length of an interval, positive; short enough for separations to stay small
 * @param trans_steps number of intervals that pass before counting begins, not negative
 * @param lyap_steps  number of intervals counted, not negative; with 0 the exponents are NaN
 * @param exponents   receives the nn exponents, the largest first up to the fluctuations of the
 *                    estimate
 * @param nn          number of exponents, 1 to n
 *
 * Costs nn + 1 integrations per interval. Codes, with nothing integrated: 26 for nn, 23 for an eps
 * that is not positive and finite, 7 for a lyap_dt that is not, or is too short to move t, 24 for a
 * negative number of intervals, 3 (work memory). A failing integration does not stop the
 * computation: the result is 1, but ErrorCode holds the code of the first failure, and the
 * exponents are not to be trusted.
 */
TX_API int TXLyapCalc(Trajex* tx, double* t, double* y, double eps, double lyap_dt,
                      long trans_steps, long lyap_steps, double* exponents, int nn);

/**
 * The same, with the running estimate in a file. After the l-th interval since the start, if l is
 * a multiple of samp and m > 0 intervals have been counted, a line is added: the counted time
 * m * lyap_dt and the nn estimates so far, each as "%12.6g ", and a line feed. The file is opened
 * and closed around each line, so that it can be watched.
 *
 * @param filename name of the file, created or emptied
 * @param samp     intervals from line to line; no lines when less than 1
 *
 * Codes: those of TXLyapCalc, and 25 when the file cannot be created, with nothing integrated,
 * or, at the end, when a line could not be written.
 */
TX_API int TXLyapCalcFile(Trajex* tx, const char* filename, double* t, double* y, double eps,
                          double lyap_dt, long trans_steps, long lyap_steps, double* exponents,
                          int nn, int samp);

/**
 * Orthonormalises vectors by the classical Gram-Schmidt procedure. A vector that depends on
 * those before it has the length 0, by which it is divided.
 * @param v    nn vectors of length n one after the other, replaced
 * @param norm receives their lengths after orthogonalisation and before normalisation; nn
 * @param n    length of a vector; nothing is touched when it is less than 1
 * @param x    work, n
 * @param nn   number of vectors
 */
TX_API void GSR(double* v, double* norm, int n, double* x, int nn);

/** @} */

/* ---- Variational equations ----------------------------------------------------------------- */

/**
 * @defgroup tx_variational Variational equations
 *
 * Beside the state, tx integrates the fundamental matrix Phi = dy/dy(t0) and the sensitivities
 * S_q = dy/dc_q of the Nparam active parameters, those whose flag in cp the application, or a
 * run, has set to 1:
 *
 *     Phi' = J Phi,   S_q' = J S_q + df/dc_q,   J = df/dy.
 *
 * The functions take them as one matrix of n rows, [Phi | S], each row at least n + Nparam long,
 * the columns of S in the order of the parameters. The caller sets it at the start, usually to
 * [I | 0]. Inside, the sub-record TX integrates the vector [y, row 0, ..., row n-1] of
 * n (n + Nparam + 1) components. All of them count in its error norm, with its own AbsTol, RelTol
 * and hmax. Its step sizes and its last step are its own, so plain and variational integration do
 * not disturb each other.
 * @{
 */

/**
 * Opens the variational sub-record, which the functions of this section and everything from
 * equilibria onwards need, and registers Jacobians and parameters. A sub-record that is already
 * there is closed first. The further arguments are, in this order:
 *
 *     double   JacPert            only when jac is null
 *     int      nparam             number of parameters, 0 for none
 *     jac_t    paramjac           only when nparam > 0; (jac_t)0 for difference quotients
 *     double   ParamJacPert       only when nparam > 0 and paramjac is null
 *     double*  c_0, c_1, ...      nparam addresses of parameter variables
 *
 * They are not converted: write 1e-6 and not 1, and cast a null paramjac. Thus, with numerical
 * Jacobians, with analytic ones, and without parameters:
 * @code
 * TXVarOpenTrajex(tx, 0, 1e-6, 2, (jac_t)0, 1e-6, &a, &b);
 * TXVarOpenTrajex(tx, jac, 2, paramjac, &a, &b);
 * TXVarOpenTrajex(tx, jac, 0);
 * @endcode
 *
 * Difference quotients cost n evaluations of f (nparam for the parameters) where a Jacobian costs
 * one call, and limit the accuracy of multipliers and bifurcations; give Jacobians if you can.
 *
 * The sub-record copies RelTol, AbsTol and h of the handle; its other settings are the defaults,
 * and the setters do not reach it (assign `tx->TX->hmax` and so on). In particular its policy is
 * to end the process, see "Results and errors". No parameter is active at first. The error stream
 * is standard error again.
 *
 * @param tx  the handle
 * @param jac the Jacobian, or null for difference quotients
 * @param ... see above
 *
 * Codes: 23 for a perturbation that is not positive; 24 for a negative nparam; 15 when the
 * sub-record cannot be opened: for lack of memory, for an order n (n + nparam + 1) + 1 exceeding
 * int (n of about 46000), or when the handle's RelTol is negative or its h not positive; 3 (memory
 * of the parameter list or the row pointers); 26 for a null address among the parameters. All are
 * reported on the handle. Whatever the failure, the handle can be closed or the opening repeated.
 * After 26 the sub-record is there with the parameters before the null address; after 3 the
 * parameters are those of the opening before.
 */
TX_API int TXVarOpenTrajex(Trajex* tx, jac_t jac, ...);

/**
 * Closes the sub-record, if there is one; TX is null afterwards. nparam, c, cp and the Jacobians
 * remain as they are until the next opening.
 * @return 1
 */
TX_API int TXVarCloseTrajex(Trajex* tx);

/**
 * Jacobian by forward differences of width JacPert, at n + 1 evaluations of f.
 * @param t time
 * @param y state, n; perturbed meanwhile, and restored exactly
 * @param j receives df_i/dy_k in j[i][k]; n rows of n
 *
 * Needs the sub-record, whose ivector is its work memory. The perturbation is not checked.
 */
TX_API int TXNumJac(Trajex* tx, double t, double* y, double** j);

/**
 * Jacobian with respect to all registered parameters by forward differences of width
 * ParamJacPert, at nparam + 1 evaluations of f. The parameter variables are perturbed meanwhile,
 * and restored exactly.
 * @param t time
 * @param y state, n
 * @param j receives df_i/dc_q in j[i][q]; n rows of nparam
 *
 * Needs the sub-record, as TXNumJac does.
 */
TX_API int TXNumParamJac(Trajex* tx, double t, double* y, double** j);

/**
 * Gradient of the cut value by forward differences, of width JacPert for the parameters too, at
 * n + 3 evaluations of the cut. Perturbed values are restored exactly.
 * @param t  time
 * @param y  state, n
 * @param c1 address of a parameter variable
 * @param c2 address of another
 * @param j  receives the derivatives with respect to y, *c1 and *c2; n + 2
 *
 * Needs the sub-record.
 *
 * Codes: 8 as for TXAutoCut.
 */
TX_API int TXNumCutJac(Trajex* tx, double t, double* y, double* c1, double* c2, double* j);

/**
 * Takes one accepted variational step: TXStep for y together with [Phi | S]. The description of
 * the step is left in the sub-record.
 * @param t0  time; advanced to the end of the step
 * @param y   state, n; advanced with it
 * @param Phi [Phi | S], n rows of n + Nparam; advanced with it
 *
 * Each stage costs one f, one Jacobian, one parameter Jacobian if Nparam > 0, and a product of
 * n x n by n x (n + Nparam).
 *
 * Codes: 29 as for TXStep. Then, and when a callback throws, `*t0`, y, Phi and the h of the
 * sub-record are those of entry, and its StepTaken is 0.
 */
TX_API int TXVarStep(Trajex* tx, double* t0, double* y, double** Phi);

/**
 * Integrates state, Phi and S to a given time, as TXIntegrate does for the state.
 * @param t0  time; on success exactly t1
 * @param t1  time to reach, not before `*t0`; nothing is done when equal
 * @param y   state, n
 * @param Phi [Phi | S], n rows of n + Nparam
 *
 * Codes: 7 and 29 as for TXIntegrate.
 */
TX_API int TXVarIntegrate(Trajex* tx, double* t0, double t1, double* y, double** Phi);

/**
 * Dense output of the last variational step, for state, Phi and S to the same order; four
 * evaluations of the variational equations per call.
 * @param t   a time in [tfirst, tlast] of the sub-record; outside, the polynomial extrapolates
 * @param y   receives the state; n
 * @param Phi receives [Phi | S]; n rows of n + Nparam, with the active parameters of that step
 *
 * Codes: 12 when there is no variational step to interpolate, or one with another number of active
 * parameters, reported on the sub-record TX under the name "TXInterpolate": it ends the process
 * unless `tx->TX->TerminateOnFatalError` is 0; 29 as for TXInterpolate, under that name.
 */
TX_API int TXVarInterpolate(Trajex* tx, double t, double* y, double** Phi);

/**
 * TXPoincareStep with the variational integrator. The section is that of the handle.
 * @param t   time; advanced to the crossing, or else to the end of the step
 * @param y   state, n; advanced with it
 * @param Phi [Phi | S], n rows of n + Nparam; advanced with it
 * @return 1 at a crossing; 0 when the step did not cross, with ErrorCode 0, or failed
 *
 * Phi is taken at the time of the crossing: it is the derivative of the flow over that time, not
 * yet projected along the flow onto the section.
 *
 * Codes: 8, 13 and 29 as for TXPoincareStep.
 */
TX_API int TXVarPoincareStep(Trajex* tx, double* t, double* y, double** Phi);

/** @} */

/* ---- Linear algebra ------------------------------------------------------------------------ */

/**
 * @defgroup tx_algebra Linear algebra
 *
 * Dense real matrices as row pointers. The routines work in place and destroy their matrix; pass
 * a copy of one that is still needed. LUdcmp and Hqr have no entry step and use the handle only
 * to report. (W. H. Press, S. A. Teukolsky, W. T. Vetterling and B. P. Flannery, Numerical
 * Recipes in C, 2nd ed., Cambridge 1992, chapters 2 and 11.)
 * @{
 */

/**
 * LU decomposition by Crout's method, with partial pivoting and implicit scaling of the rows.
 *
 * @param tx   handle on which a failure is reported; null makes it one without a handle
 * @param n    number of rows and columns
 * @param a    matrix; receives U on and above the diagonal and the unit triangle L below. Elements
 *             of rows are exchanged, the row pointers are not.
 * @param indx receives, for each step i, the row exchanged with row i; n
 * @param d    receives 1 or -1, the parity of the exchanges
 * @param work n
 * @return 1, or 0 for a singular matrix
 *
 * Codes: 22 for a row of zeros; the matrix is unchanged. Other singular matrices pass: a pivot
 * that is exactly 0 becomes 1e-20, and solutions become huge. A NaN in the matrix makes factors
 * NaN and is not reported. A matrix whose largest element lies outside 1e-100 to 1e100 is
 * decomposed at another scale, by a power of 2, and the factors are those of the matrix given.
 */
TX_API int LUdcmp(Trajex* tx, int n, double** a, int* indx, double* d, double* work);

/**
 * Solves a x = b with the factors and exchanges made by LUdcmp.
 * @param n    number of unknowns
 * @param a    the factors
 * @param indx the exchanges, n
 * @param b    right-hand side, replaced by the solution; n
 */
TX_API void LUbksb(int n, double** a, int* indx, double* b);

/**
 * Solves A x = b.
 * @param n    number of unknowns
 * @param A    matrix, replaced by its factors
 * @param b    right-hand side, replaced by the solution; n
 * @param work n doubles followed by n ints; an array of 2 n doubles will do
 *
 * Codes: 22 under the name "LUdcmp", with A and b unchanged.
 */
TX_API int TXLinZero(Trajex* tx, int n, double** A, double* b, double* work);

/**
 * Balances a matrix: a diagonal similarity transformation by powers of 2 makes the norms of rows
 * and columns comparable, without rounding errors: a scaling that would leave the range of
 * exponents is left out. It ends on non-finite entries. (B. N. Parlett
 * and C. Reinsch, Numer. Math. 13 (1969) 293-304.)
 * @param a n x n
 * @param n its order
 */
TX_API void Balanc(double** a, int n);

/**
 * Reduces a matrix to upper Hessenberg form by elimination with pivoting. The multipliers remain
 * below the subdiagonal, where Hqr does not look. (R. S. Martin and J. H. Wilkinson, Numer. Math.
 * 12 (1968) 349-368.)
 * @param a n x n
 * @param n its order
 */
TX_API void Elmhes(double** a, int n);

/**
 * Eigenvalues of an upper Hessenberg matrix by the shifted QR iteration. (R. S. Martin, G. Peters
 * and J. H. Wilkinson, Numer. Math. 14 (1970) 219-231.)
 *
 * @param tx handle on which a failure is reported
 * @param a  matrix, destroyed
 * @param n  its order
 * @param wr receives the real parts; n
 * @param wi receives the imaginary parts; n
 *
 * Eigenvalues come as they are found, from the bottom of the matrix upwards, and not sorted. Of a
 * complex pair the one with the positive imaginary part has the higher index.
 *
 * Codes: 21 when an eigenvalue takes more than 30 iterations; those with higher indices are set.
 * A matrix with NaN ends in code 21 or in NaN eigenvalues. One whose elements lie outside 1e-100 to
 * 1e100 is multiplied by a power of 2 before, and its eigenvalues are divided by it.
 */
TX_API int Hqr(Trajex* tx, double** a, int n, double* wr, double* wi);

/**
 * Eigenvalues of a real matrix: Balanc, Elmhes, Hqr, at the scale that Hqr works at.
 * @param n  order of the matrix
 * @param A  matrix, destroyed
 * @param er receives the real parts; n, ordered as by Hqr
 * @param ei receives the imaginary parts; n
 *
 * Codes: 21 under the name "Hqr".
 */
TX_API int TXEigen(Trajex* tx, int n, double** A, double* er, double* ei);

/**
 * Eigenvector of a real eigenvalue, of length 1 and with a positive last component, from the
 * linear system that fixes that component at 1. An eigenvector whose last component is 0 cannot
 * be found: what is returned for it has no meaning.
 *
 * @param n  order of the matrix
 * @param A  matrix, destroyed
 * @param r  the eigenvalue
 * @param ev receives the vector; n
 * @param ws work, as for TXLinZero with n - 1 unknowns
 * @return 1 in any case
 *
 * Codes: 22 under the name "LUdcmp" when the system has a row of zeros.
 */
TX_API int TXEigenVector(Trajex* tx, int n, double** A, double r, double* ev, double* ws);

/** @} */

/* ---- Equilibria and periodic orbits -------------------------------------------------------- */

/**
 * @defgroup tx_orbits Equilibria and periodic orbits
 *
 * Newton searches. Residuals r are weighed against the solution x,
 *
 *     dist = sqrt( sum_i ( r_i / (|x_i| NewtRelTol + NewtAbsTol) )^2 ),
 *
 * without division by n; components with an empty weight are left out, and dist <= 1 is
 * convergence. A residual that is not finite makes dist NaN, whatever its weight. A search gives up
 * when dist more than doubles from one iteration to the next, when it is NaN, and at the limit
 * MaxNewtSteps. A search for an orbit, its bifurcations included, also gives up at an iterate
 * with a component or a parameter beyond 10000 (1 + |its value at first|), and when one period
 * takes more than 10^6 steps and more than 1000 times as many as the first one did. These functions
 * need the sub-record (TXVarOpenTrajex). A singular matrix is code 22 from TXLinZero, and if that
 * is recorded the search goes on with what it has.
 * @{
 */

/**
 * Finds an equilibrium, f(0, y) = 0, by Newton's method; the residual is f itself.
 *
 * @param y a guess, n; on success the equilibrium. On failure, and when a callback throws, the
 *          guess again.
 *
 * The residual is evaluated at most MaxNewtSteps times, the last time in vain: the default 10
 * allows eight corrections.
 *
 * Codes: 3 (work memory), 30 (no convergence).
 */
TX_API int TXEquiPoint(Trajex* tx, double* y);

/**
 * Finds a periodic orbit of a system forced with a known period, by shooting: Newton's method for
 * phi_T(x) = x, where phi_T is the flow over one period.
 *
 * @param t   time, the phase of the forcing at which the orbit starts
 * @param y   a guess of the start, n; on success the state reached after one period, which is the
 *            start up to the tolerance. (The start itself is in `tx->TX->istate`, which is work
 *            memory: copy it from there, do not pass it as y.)
 * @param Phi receives the monodromy matrix, n rows of n; its eigenvalues are the multipliers
 * @param T   the period, positive
 *
 * nparam is 0 while it works, and as before afterwards.
 *
 * Codes: 3 (work memory); 7 for a period that is not positive, not finite or too short to move t;
 * 30 without convergence after at most MaxNewtSteps integrations, y and Phi being those of the
 * last. An integration that fails ends the search with its own code.
 */
TX_API int TXNonAutoOrbit(Trajex* tx, double t, double* y, double** Phi, double T);

/**
 * Finds a periodic orbit of an autonomous system and its period. The trajectory is followed to
 * the section and from there through 2p crossings, which gives a first period; then start and
 * period are corrected together by Newton's method, the start at right angles to the flow, and
 * after each correction the start is moved back onto the section.
 *
 * @param t   time to start with; f does not depend on it
 * @param y   a guess near the orbit, n; on success the point of the orbit on the section
 * @param Phi receives the monodromy matrix over one period from y, n rows of n
 * @param p   multiplicity, at least 1: one period is 2p crossings of the section, in either
 *            direction. For an orbit that crosses twice in each turn, p is the number of turns; an
 *            orbit of doubled period has p = 2.
 * @param T   receives the period; its value on entry is not used
 *
 * nparam is 0 while it works, and as before afterwards. With NewtAbsTol = 0 it cannot converge on
 * a section through the zero of a coordinate; see NewtAbsTol.
 *
 * Codes: 3 (work memory); 20 when what was found is an equilibrium, which closes over any period:
 * no point of the period, or the flow at its start times the period, differs from the start by more
 * than the tolerance (y is then the equilibrium); 30 without convergence, y, Phi and `*T` being
 * those of the last integration; also when a correction makes the period not positive, or too short
 * to move t, `*T` being that period. When the section is not reached, or not regained, within
 * MaxPeriodSteps steps, or a point on it not met within MaxPoincareSteps bisections or the
 * resolution of t, the result is 0 and ErrorCode is what the last step left there, as a rule 0. A
 * step that fails ends the search with its own code.
 */
TX_API int TXAutoOrbit(Trajex* tx, double t, double* y, double** Phi, int p, double* T);

/** @} */

/* ---- Bifurcations -------------------------------------------------------------------------- */

/**
 * @defgroup tx_bifurcations Bifurcations
 *
 * (Yu. A. Kuznetsov, Elements of Applied Bifurcation Theory, Springer.)
 *
 * An equilibrium bifurcates where an eigenvalue of its Jacobian meets the imaginary axis, a
 * periodic orbit where a Floquet multiplier meets the unit circle. A location finds such a point;
 * a check says what kind it is. One-parameter runs locate, and those over orbits check; both may
 * also be called on a record that an application has filled. The criteria and the reports read
 * `tx->txb`, which has to be attached; they have no entry step, allocate nothing and report
 * nothing.
 * @{
 */

/**
 * Creates a bifurcation record for the present order and number of parameters of the handle. The
 * record is not attached; assign it to `tx->txb` for that, or destroy it with TXDestroyBif.
 * @return the record, or null after code 3 (memory)
 */
TX_API TrajexBif* TXCreateBif(Trajex* tx);

/**
 * Destroys a record; if it is the one attached to the handle, `tx->txb` becomes null.
 * @return 1, or 0 for a null record, without a report
 */
TX_API int TXDestroyBif(Trajex* tx, TrajexBif* txb);

/**
 * Exchanges the eigenvalue nearest to +1 with the last one. For an orbit of an autonomous system
 * this puts its trivial multiplier last, where CRIT can leave it out.
 * @param er real parts, n
 * @param ei imaginary parts, n
 * @param n  number of eigenvalues; nothing is touched when it is less than 1
 */
TX_API void SORTEIG(double* er, double* ei, int n);

/**
 * The multiplier nearest to the unit circle, the first of several.
 * @param crit1 receives its index
 * @param mode  number of multipliers left out at the end: 1 for autonomous systems (after
 *              SORTEIG), 0 for forced ones
 * @return its modulus
 */
TX_API double CRIT(Trajex* tx, int* crit1, int mode);

/**
 * The eigenvalue nearest to the imaginary axis, the first of several.
 * @param crit1 receives its index
 * @return its real part with the sign
 */
TX_API double EQUICRIT(Trajex* tx, int* crit1);

/** @return the distance of multiplier number cd from the nearer one of +1 and -1 */
TX_API double EUKLID2(Trajex* tx, int cd);

/**
 * The two multipliers nearest to +1 or -1, each to the nearer one.
 * @param crit1 receives the index of the one with the greater real part (or, between equals, the
 *              greater imaginary part)
 * @param crit2 receives the index of the other; with n = 1 the same index
 * @return the larger of the two distances, infinite with n = 1. It vanishes in codimension two
 */
TX_API double CRIT2(Trajex* tx, int* crit1, int* crit2);

/**
 * The two eigenvalues with the smallest real parts, signs counted.
 * @param crit1 receives the index of the one with the greater real part, as for CRIT2
 * @param crit2 receives the index of the other; with n = 1 the same index
 * @return the second smallest real part, infinite with n = 1
 */
TX_API double EQUICRIT2(Trajex* tx, int* crit1, int* crit2);

/**
 * Prints a matrix of i rows and j columns to standard output, in nested braces, each element as
 * "%15.10g". A help for debugging.
 */
TX_API void SHOWMAT(int i, int j, double** m);

/**
 * Writes the state report of the record: step (and period, on paths of orbits), parameters, state
 * and eigenvalues or multipliers, here for an equilibrium with n = 3 and three parameters:
 *
 *        Step: 12
 *        Parameters     State           Eigenvalue             Modulus
 *         10             7.9560195      -13.666667-i0.000000    13.6667
 *         24.736842      7.9560195       0.000000-i9.624530    9.62453
 *         2.6666667      23.736842       0.000000+i9.624530    9.62453
 *     ....................................................................
 *
 * The formats, each line ending with a line feed:
 *
 *     heading      "   Step: %-6d " on paths of equilibria, else "   Step: %-6d   T=%-12.8g "
 *     parameter    "   %- 12.8g   ", or 18 blanks in rows beyond the parameters
 *     the rest     "%- 12.8g    % 8f%ci%-8f    %-12.6g": state, real part, sign, absolute
 *                  imaginary part (a zero prints as -i0.000000), modulus; nothing beyond the state
 *     last line    68 times the mark of the path: '-' orbit, '=' orbit in two parameters,
 *                  '.' equilibrium, ':' equilibrium in two parameters; none for kind 0
 */
TX_API void TXStateOutput(Trajex* tx, FILE* file);

/**
 * Writes the bifurcation report: after an empty line, a box of 69 columns, here for the Hopf point
 * of the same path:
 *
 *     +-------------------------------------------------------------------+
 *     |                        Bifurcation                                |
 *     |                                                                   |
 *     |                                                                   |
 *     | Parameters     State           Eigenvalue            Modulus      |
 *     |  10             7.95602        -13.666667-i0.000000   13.6667      |
 *     |  24.7368        7.95602         0.000000-i9.624530   9.62453      |
 *     |  2.66667        23.7368         0.000000+i9.624530   9.62453      |
 *     |                                                                   |
 *     +-------------------------------------------------------------------+
 *
 * (An entry wider than its column moves the frame.) The formats inside the frame:
 *
 *     title        24 blanks, "%-42s": "Bifurcation", or once the bifurcation is classified the
 *                  name of its type and btype
 *     period       28 blanks, "T=%-36g", except on paths of equilibria
 *     parameter    " %- 12.6g   ": the application's variables as they are now, not the copies
 *                  in the record
 *     the rest     "%- 12.6g    % 8f%ci%-8f   %-12.6g ", as in the state report
 *
 * and once it is classified:
 *
 *     directions   16 blanks, "%- 12.6g   " and "%- 36.6g": trans and tang, component by component;
 *                  tang is left blank at a saddle-node
 *     test orbits  "      %- 12.6g   %- 12.6g   %- 12.6g   %- 12.6g    " for left, right, top and
 *                  bottom: a heading with an asterisk at the direction indir from which the path
 *                  came, the parameter values, dots, and the states
 */
TX_API void TXStateBifOutput(Trajex* tx, FILE* file);

/**
 * Writes one line for plotting, each value as "%.10g " and a line feed at the end: the continued
 * parameter, on two-parameter paths the second one, and the n components of the state.
 */
TX_API void TXPathOutput(Trajex* tx, FILE* file);

/**
 * Classifies a bifurcation of a periodic orbit that has been located, from four orbits nearby:
 * top and bottom, displaced along the eigenvector of the critical multiplier with the parameter
 * free, and (except at a saddle-node) left and right, at a lowered and a raised parameter. The type
 * is the first of these that applies:
 *
 *     TORUS             the critical multiplier is complex
 *     PERIOD DOUBLING   it is negative; the test orbits are sought with twice the period
 *     PITCHFORK         top and bottom have equally many stable multipliers
 *     TRANSCRITICAL     top and bottom lie on different sides of the bifurcation
 *     SADDLE-NODE       they lie on the same side
 *
 * Numbers of stable multipliers, here and in btype, leave the trivial one out.
 *
 * @param txb    the record: t, y, T, c, er, ei, intang and the monodromy matrix in Phi describe the
 *               located orbit. It receives biftype, btype, indir, the directions and the test
 *               orbits.
 * @param c      address of the continued parameter, exactly one of the registered ones
 * @param thedc  amplitude of displacement and parameter offset, a step length of the run. It is
 *               halved when a test orbit is not found and doubled when a displaced orbit falls back
 *               to the bifurcation ("v" and "^" on the stream); what it has become for top serves
 *               bottom, and likewise for left and right.
 * @param mode   0 for a forced system, 1 for an autonomous one
 * @param state  stream for the progress characters, or null
 * @return 1 when classified. 0 without a code when c is not exactly one registered parameter, or
 *         when a test orbit is not found in MaxNewtSteps + 1 attempts or loses the section:
 *         biftype is then 0, T as before, and the parameters are those of the last trial.
 *
 * On success the parameters are those of the record again. What fails on the way to a test orbit is
 * recorded even under the policy to terminate, and its code may be left in ErrorCode.
 *
 * Codes: 3 (work memory), 8 (mode 1, and no section is defined), 28 (no record, or one made for
 * fewer parameters).
 */
TX_API int TXCheckBif(Trajex* tx, TrajexBif* txb, double* c, double thedc, int mode, FILE* state);

/**
 * Classifies a bifurcation of an equilibrium that has been located, from the eigenvalue nearest
 * to the imaginary axis: SADDLE-NODE when it is real, HOPF when it is complex. (A real one at
 * which no fold occurs, as in a pitchfork, is called a saddle-node too.) Runs do not call it;
 * call it after a run or a location, and TXStateBifOutput then prints the type.
 *
 * @param txb   the record: y, c, er, ei and the Jacobian in Phi describe the located point. It
 *              receives biftype and btype, and for a Hopf bifurcation trans.
 * @param c     address of the continued parameter, exactly one of the registered ones
 * @param thedc not used
 * @param state not used
 * @return 1 when classified, with the parameters set to those of the record; 0 without a code
 *         when c is not exactly one registered parameter
 *
 * Codes: 3 (work memory), 28 (no record, or one made for fewer parameters), and what TXEigenVector
 * reports.
 */
TX_API int TXCheckEquiBif(Trajex* tx, TrajexBif* txb, double* c, double thedc, FILE* state);

/**
 * Locates a bifurcation of a periodic orbit: Newton's method for an orbit whose critical
 * multiplier has modulus 1, with start, parameter and, in autonomous systems, the period as
 * unknowns. The gradient of the modulus is formed by differences of width LambdaPert, at n + 1
 * more integrations over the period in each iteration. An orbit that proves to be a shorter one
 * run through twice is replaced by that one ("%" on the stream).
 *
 * Converged is where the modulus is 1 within LambdaNewtRelTol + LambdaNewtAbsTol and the orbit
 * closes within |y_i| sqrt(NewtRelTol) + sqrt(NewtAbsTol), both taken together as a root of the
 * sum of squares.
 *
 * @param txb   the record: t, y and T are the orbit to start from. On success it holds the located
 *              orbit with parameters, multipliers and monodromy matrix; biftype and indir are 0.
 * @param c     address of the continued parameter, exactly one of the registered ones; the variable
 *              is the start and receives the result
 * @param mode  0 for a forced system; for an autonomous one the multiplicity p of TXAutoOrbit
 * @param state stream for the progress characters ('.' nearer, '!' not), or null
 * @return 1 when located. 0 without a code when c is not exactly one registered parameter, when
 *         the iteration does not converge, or when the section is lost: y, Phi, er and ei of the
 *         record are then intermediate values, and `*c` is that of the last iterate.
 *
 * nparam is as before on every way out. What fails on the way, such as an integration, is recorded
 * even under the policy to terminate, and its code may be left in ErrorCode.
 *
 * Codes: 3 (work memory), 8 (an autonomous system without a section, where the search needs one),
 * 28 (no record, or one made for fewer parameters).
 */
TX_API int TXLocateBif(Trajex* tx, TrajexBif* txb, double* c, int mode, FILE* state);

/**
 * Locates a bifurcation of an equilibrium: Newton's method for f = 0 with the real part of the
 * critical eigenvalue 0, for state and parameter. The gradient of that real part is formed by
 * differences of width LambdaPert, at n + 1 more Jacobians and sets of eigenvalues in each
 * iteration. Convergence is judged as by TXLocateBif, with the real part in place of the modulus
 * minus 1.
 *
 * @param txb   the record: y is the start, t the time of all evaluations. On success it holds the
 *              located point with parameters, eigenvalues and Jacobian, and biftype and indir are
 *              0.
 * @param c     address of the continued parameter, exactly one of the registered ones; the variable
 *              is the start and receives the result
 * @param state stream for the progress characters ('.' nearer, '!' not), or null
 * @return 1 when located; 0 without a code when c is not exactly one registered parameter
 *
 * Codes: 3 (work memory), 28 (no record, or one made for fewer parameters); 30 (no convergence),
 * with y and `*c` those of the last iterate, and Phi, er and ei possibly those of a perturbed
 * point.
 */
TX_API int TXLocateEquiBif(Trajex* tx, TrajexBif* txb, double* c, FILE* state);

/** @} */

/* ---- Continuation -------------------------------------------------------------------------- */

/**
 * @defgroup tx_runs Continuation
 *
 * Six runs follow a branch of equilibria or periodic orbits in one parameter, or a curve of their
 * bifurcations in two, by predictor and corrector with an orthogonality condition, in the manner
 * of pseudo-arclength continuation. (H. B. Keller, in: P. H. Rabinowitz (ed.), Applications of
 * Bifurcation Theory, Academic Press 1977, 359-384.) They need the sub-record with the continued
 * parameters registered, and share the following run protocol.
 *
 * @par Parameters and steps
 * Parameters are named by the addresses of the application's variables, as they were registered;
 * the run moves the variables. `*dc` is the step length. Its magnitude on entry is the largest
 * step of the run and its sign the direction, in one parameter towards larger or smaller values;
 * the run adapts it and leaves the last one. A `*dc` that is NaN or infinite is code 29 before
 * anything changes. The smallest step is |*dc| NewtRelTol + NewtAbsTol, formed at the start; in one
 * parameter a |*dc| below that is code 29 at the first step, in two the first time it is halved.
 *
 * @par Outputs
 * `mode` is a sum of bits that select the outputs. Each brings further arguments, passed in this
 * order and only for bits that are set; other bits are ignored.
 *
 *     1   state stream   FILE*              reports of points and bifurcations, progress text
 *     2   path stream    FILE*              a line per point and per bifurcation, for plotting
 *     4   user output    output_t, FILE*    a report of the application's, whenever 2 has a line
 *
 * So mode 7 is followed by state, path, report, user, and mode 6 by path, report, user. Streams of
 * set bits have to be open for writing (that of the user output is handed on unseen); they are not
 * flushed, closed or remembered.
 *
 * Every accepted point, the start included, goes to TXStateOutput, TXPathOutput and the user
 * output, in this order; every located bifurcation to TXStateBifOutput, TXPathOutput and the user
 * output. Between the reports the state stream shows what the run is doing:
 *
 *     "   Stepsize: %g "                before each prediction, with *dc
 *     '.' '!'                           a Newton iterate that came nearer, or did not
 *     "Searching for bifurcation "      a location, whose progress characters follow,
 *     '%'                                 an orbit replaced by one of half its period
 *     " Checking bifurcation "          a check, and
 *     'v' '^'                             its amplitude halved, or doubled
 *     "Searching for Co-dimension 2"    with ':' for '.'; if found, " ---- CO-DIMENSION 2 ----"
 *
 * @par One parameter
 * The start is converged first, and is step 0. A step predicts along the tangent and corrects,
 * with `*dc` halved until the corrector converges. Then, if the number of stable eigenvalues has
 * changed since the last accepted point, or the tangent has turned round, the bifurcation between
 * them is searched for. When it is located within a step length of both points, the path goes on
 * from the point beyond it, at a turning point with the sign of `*dc` reversed; otherwise, and
 * where what was located is another bifurcation farther away, the point is rejected and `*dc`
 * halved. A search in vain leaves the record as it was. Without a search, `*dc` is multiplied by a
 * factor from 0.7071 to 1.4142, the smaller the more the tangent turns and the critical eigenvalue
 * moves. Where the solution does not depend on the parameter, or so little that the change is below
 * the Newton tolerance of the state while a step measured in the state would take the parameter
 * more than 10 (1 + |*c|) away, the step is taken in the parameter alone.
 *
 * @par
 * The run ends with 1 after MaxContSteps steps, rejected points included, or at bifurcation number
 * `nrbif` (0 for no such limit; after the start when negative). At a bifurcation the parameter
 * keeps the located value and `tx->txb` holds the located point, while y (and `*T`) belong to the
 * point beyond. A bifurcation record is created if there is none, or in place of one that was made
 * for fewer parameters.
 *
 * @par
 * y and T may lie in the record, as `tx->txb->y` does, or `tx->txb->top` with `&tx->txb->Ttop`: the
 * run then works on copies, which it writes back at its end unless the record was replaced. Only
 * the record's own y and T hold in the end what the record holds.
 *
 * @par Two parameters
 * The run starts from state, time, period and type in the bifurcation record, as a rule those of a
 * bifurcation at which a one-parameter run has ended, and from the present values of the parameter
 * variables, not their copies in the record. It reports this point as it is. The first step goes
 * along the null direction of the linearised system, in the sense given by the sign of `*dc`, which
 * is positive from then on; further steps predict along the secant. `*dc` grows by 1.25 per point
 * and is halved when the corrector fails. LambdaNewtRelTol and LambdaNewtAbsTol weigh every
 * equation. The run ends with 1 after MaxContSteps points beyond the start, of which the first has
 * the step number 0, as the start has.
 *
 * @par Results and codes
 * The result is 1 when the run has ended as described, and 0 after a failure. A run handles some
 * failures itself, such as a location that does not converge: these are recorded even under the
 * policy to terminate, and their code may be left in ErrorCode although the result is 1. Failures
 * of the eigenvalue computations and linear solves of one-parameter runs are not handled: if the
 * policy is to record, the run goes on with what it has. A search for a bifurcation that has no
 * memory ends the run.
 *
 *     3     work memory or record not available
 *     26    a parameter is not registered exactly once, or c1 and c2 are the same; the flags of
 *           two-parameter runs are as before
 *     28    two parameters: no record, or one made for fewer parameters
 *     29    the step would have to be smaller than the smallest one, or is no finite number
 *     ...   one parameter: the code of a start that does not converge, reported once more
 *
 * A start that is not converged leaves y (and `*T`) as the search for it does, and the record as it
 * was but for biftype and cindi. A run that fails later leaves the last accepted point in its
 * arguments and in the record; code 29 ends two-parameter runs also where their system is
 * singular. When a callback throws, arguments and record of a one-parameter run are those in use at
 * that moment, without perturbations, and those of a two-parameter run the last accepted point.
 *
 * @{
 */

/**
 * Continues an equilibrium of y' = f(0, y; c) in one parameter; see the run protocol above. Located
 * bifurcations are not classified (TXCheckEquiBif does that). The step is measured in the state:
 * |dy| = |*dc| at the prediction.
 *
 * @param y     a guess of the first equilibrium, n; the current point during the run
 * @param c     address of the parameter
 * @param dc    step length with the direction
 * @param nrbif number of bifurcations after which to stop, 0 for any
 * @param mode  outputs
 * @param ...   their streams and functions
 *
 * Stable are eigenvalues with a negative real part. Kind of path: 3. T and t of the record are
 * left alone; t, at which TXLocateEquiBif evaluates f, is 0 in a fresh record.
 */
TX_API int TXEquiCont(Trajex* tx, double* y, double* c, double* dc, int nrbif, int mode, ...);

/**
 * Continues a periodic orbit of an autonomous system in one parameter; see the run protocol above.
 * The orbit is a point on the section of the handle and its period, and is put back on the section
 * at every iterate. The first orbit is found by TXAutoOrbit, bifurcations by TXLocateBif, and they
 * are classified by TXCheckBif if CheckBifs is non-zero; one that cannot be classified is
 * rejected like one that cannot be located. The step is an arc length in the space of state and
 * parameter.
 *
 * @param t     time to start with
 * @param y     a guess near the first orbit, n; the current point during the run
 * @param p     multiplicity, see TXAutoOrbit
 * @param T     receives the period; the current one during the run
 * @param c     address of the parameter
 * @param dc    step length with the direction
 * @param nrbif number of bifurcations after which to stop, 0 for any
 * @param mode  outputs
 * @param ...   their streams and functions
 *
 * Stable are multipliers inside the unit circle, the trivial one left out. One component of the
 * tangent may keep its sign where it turns round. The upper limit of the step factor is 1.41.
 * Kind of path: 1.
 *
 * Codes: those of every run, and 13 when the section is lost without another code. (Where not even
 * a step to it can be made, the correction has failed, and the step is halved.)
 */
TX_API int TXAutoCont(Trajex* tx, double t, double* y, int p, double* T, double* c, double* dc,
                      int nrbif, int mode, ...);

/**
 * Continues a periodic orbit of a system forced with a fixed period in one parameter; see the run
 * protocol above. The first orbit is found by TXNonAutoOrbit; bifurcations are located, classified
 * and, if need be, rejected as by TXAutoCont. The step is measured in the state.
 *
 * @param t     time, the phase of the forcing at y
 * @param y     a guess of the first orbit, n; the current point during the run
 * @param T     period of the forcing and of the orbit; not to depend on the parameter
 * @param c     address of the parameter
 * @param dc    step length with the direction
 * @param nrbif number of bifurcations after which to stop, 0 for any
 * @param mode  outputs
 * @param ...   their streams and functions
 *
 * Stable are multipliers inside the unit circle. Kind of path: 1.
 */
TX_API int TXNonAutoCont(Trajex* tx, double t, double* y, double T, double* c, double* dc,
                         int nrbif, int mode, ...);

/**
 * Follows a fold or Hopf bifurcation of an equilibrium in two parameters; see the run protocol
 * above. The curve is that on which the real part of the critical eigenvalue vanishes. f is
 * evaluated at the time t of the record.
 *
 * @param c1   address of the first parameter of the path line
 * @param c2   address of the second
 * @param dc   step length with the direction
 * @param mode outputs
 * @param ...  their streams and functions
 *
 * Kind of path: 4.
 */
TX_API int TXEqui2DCont(Trajex* tx, double* c1, double* c2, double* dc, int mode, ...);

/**
 * Follows a bifurcation of a periodic orbit of an autonomous system in two parameters; see the run
 * protocol above. The curve is that on which the critical multiplier, the trivial one left out,
 * keeps the modulus 1. The period is an unknown, kept in the record, and the point stays on the
 * section, to which it is moved back after each prediction and correction (without examining
 * whether that succeeded).
 *
 * @param c1   address of the first parameter of the path line
 * @param c2   address of the second
 * @param dc   step length with the direction
 * @param mode outputs
 * @param ...  their streams and functions
 *
 * With biftype 1 (TORUS) in the record the criterion is the modulus minus 1; otherwise that is
 * multiplied by 1 + |imaginary part|, which disfavours complex multipliers. Kind of path: 2.
 *
 * Codes: those of every run, and 8 without a section, which is tested after the parameters.
 */
TX_API int TXAuto2DCont(Trajex* tx, double* c1, double* c2, double* dc, int mode, ...);

/**
 * Follows a bifurcation of a periodic orbit of a forced system in two parameters; see the run
 * protocol above. The orbit starts at the time t of the record and has its period T, which is
 * fixed. The criterion is that of TXAuto2DCont, over all multipliers.
 *
 * When two multipliers are both within 0.025 of +1 or -1 (see CRIT2), a point of codimension two
 * is searched for, by Newton's method with doubled tolerances. It is reported like an accepted
 * point, and the path turns there by reflection of its direction; a search in vain is no failure.
 * Such points are at least 11 steps apart.
 *
 * @param c1   address of the first parameter of the path line
 * @param c2   address of the second
 * @param dc   step length with the direction
 * @param mode outputs
 * @param ...  their streams and functions
 *
 * Kind of path: 2.
 */
TX_API int TXNonAuto2DCont(Trajex* tx, double* c1, double* c2, double* dc, int mode, ...);

/** @} */

/* ---- Single-instance interface ------------------------------------------------------------- */

/**
 * @defgroup tx_single Single-instance interface
 *
 * Short names for programs that work with one system at a time, on one handle that the library
 * holds. Each function that integrates takes the right-hand side f(t, y) -> f as `fcn` and keeps
 * it for the handle, so that calls may alternate between systems of the same order; dense output
 * belongs to the system of the last step. Otherwise a function does what its namesake does and
 * reports what that reports, under that name. While no handle is open, each of them except
 * openTrajex is code 1 under its own name, which ends the process. One thread at a time.
 *
 * An application that has other uses for such names defines TX_NO_SHORT_NAMES.
 * @{
 */

#if !defined(TX_NO_SHORT_NAMES)
/** @return the sum of x[i] y[i] for i < n, added in this order; 0 for n <= 0. Needs no handle. */
TX_API double dot(double* x, double* y, int n);

/**
 * Opens the handle, see TXOpenTrajex. One that is open already is replaced and not closed: close
 * it first.
 * @return 1
 */
TX_API int openTrajex(int order, double tol, double h);

/** Closes the handle, see TXCloseTrajex. */
TX_API int closeTrajex(void);

/** See TXErrorTrajex. */
TX_API int errorTrajex(void);

/** See TXOrder. */
TX_API int order(void);

/** See TXStep. */
TX_API int step(double* t0, double* y, void (*fcn)(double, double*, double*));

/** See TXIntegrate. */
TX_API int integrate(double* t0, double t1, double* y, void (*fcn)(double, double*, double*));

/** See TXInterpolate. */
TX_API int interpolate(double t, double* y, void (*fcn)(double, double*, double*));

/**
 * Sets RelTol.
 *
 * Codes: 5 under the name "set_tol" unless tol > 0; unlike TXSetRelTol it refuses 0.
 */
TX_API int set_tol(double tol);

/**
 * Sets hmax.
 *
 * Codes: 11 under the name "set_max_step" unless hmax > 0.
 */
TX_API int set_max_step(double hmax);

/**
 * Sets AbsTol.
 *
 * Codes: 5 under the name "set_abs_tol" unless abstol > 0; unlike TXSetAbsTol it refuses 0.
 */
TX_API int set_abs_tol(double abstol);

/**
 * Sets the section, eps without a test, and calls TXPoincareStep. A null cutfcn selects the
 * hyperplane.
 */
TX_API int poincare_step(double* t, double* y, void (*fcn)(double, double*, double*),
                         double (*cutfcn)(double, double*), double eps);

/** See TXSetMaxPoincareSteps. */
TX_API int set_max_poincare_steps(int n);

/** See TXCutSurface. */
TX_API int cut_surface(double* state, double* normal);

/** See TXAutoCut. */
TX_API double auto_cut(double t, double* y);

/** See TXSetAutoCut. */
TX_API int set_auto_cut(double t, double* y, void (*fcn)(double, double*, double*));

/** See TXLyapCalc; fcn comes after lyap_dt. */
TX_API int lyap_calc(double* t, double* y, double eps, double lyap_dt,
                     void (*fcn)(double, double*, double*), long trans_steps, long lyap_steps,
                     double* exponents, int nn);

/** See TXLyapCalcFile; fcn comes after lyap_steps. */
TX_API int lyap_calc_file(const char* filename, double* t, double* y, double eps, double lyap_dt,
                          long trans_steps, long lyap_steps, void (*fcn)(double, double*, double*),
                          double* exponents, int nn, int samp);

/** See TXftablef. */
TX_API int ftablef(const char* filename, const char* format, double* t, double t1, long n,
                   double* y, void (*fcn)(double, double*, double*));

/** See TXftableg; fcn comes before g. */
TX_API int ftableg(double* t, double t1, long n, double* y, void (*fcn)(double, double*, double*),
                   void (*g)(double t, double* y));

/** See TXftablea. */
TX_API int ftablea(FILE* file, const char* format, double* t, double t1, long n, double* y,
                   void (*fcn)(double, double*, double*));
#endif

/** @} */

#ifdef __cplusplus
}
#endif

#endif
