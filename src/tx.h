/*
 * tx - numerical study of dynamical systems y' = f(t, y; c).
 *
 * The one public header. It compiles as C99 and as C++17 or later; every name has C linkage.
 */
#ifndef TX_H
#define TX_H

#include <stdio.h>

#define TX_VERSION_MAJOR 0
#define TX_VERSION_MINOR 1
#define TX_VERSION_PATCH 0
#define TX_VERSION "0.1.0"

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

typedef struct Trajex_t Trajex;
typedef struct TrajexBif_t TrajexBif;
typedef void (*jac_t)(double t, double* y, double** J);
typedef void (*output_t)(Trajex* tx, FILE* file);

struct Trajex_t {
    double* abs_err;
    double* rel_err;
    double* y5;
    double* y6;
    double* ynp1d2;
    double* yfirst;
    double* ylast;
    double* y0;
    double* yw;
    double* istate;
    double* ivector;
    double* k;
    double** j;
    double** c;
    int* output;
    char* form;
    char* cp;
    double AbsTol;
    double RelTol;
    double NewtAbsTol;
    double NewtRelTol;
    double LambdaNewtAbsTol;
    double LambdaNewtRelTol;
    double CutEps;
    double JacPert;
    double ParamJacPert;
    double LambdaPert;
    double tfirst;
    double tlast;
    double h;
    double hmax;
    int order;
    int nparam;
    int MaxPoincareSteps;
    int MaxPeriodSteps;
    int MaxNewtSteps;
    int MaxContSteps;
    int CheckBifs;
    int CutSurfaceDefined;
    int TerminateOnFatalError;
    int StepTaken;
    int ErrorCode;
    void (*fcn)(double t, double* y, double* f);
    double (*cut)(double t, double* y);
    jac_t jac;
    jac_t paramjac;
    Trajex* TX;
    TrajexBif* txb;
};

struct TrajexBif_t {
    Trajex* tx;
    int order;
    int biftype;
    double t;
    double* y;
    double** Phi;
    double T;
    double* c;
    double* er;
    double* ei;
    double* trans;
    double* tang;
    double* intang;
    double* top;
    double* bot;
    double* left;
    double* right;
    double ctop;
    double cbot;
    double cleft;
    double cright;
    double Ttop;
    double Tbot;
    double Tleft;
    double Tright;
    int indir;
    int cindi[3];
    int steps;
    char btype[16];
};

TX_API extern const char* const TrajexFatalError[31];
TX_API extern const char* const TrajexBifName[7];
TX_API extern const char* const TrajexBifIconLeft[7];
TX_API extern const char* const TrajexBifIconRight[7];

/* ---- Handle and settings ------------------------------------------------------------------- */

TX_API Trajex* TXOpenTrajex(void (*fcn)(double t, double* y, double* f), int order, double RelTol,
                            double h);
TX_API int TXCloseTrajex(Trajex* tx);
TX_API int TXOrder(Trajex* tx);
TX_API int TXSetMaxStep(Trajex* tx, double hmax);
TX_API int TXSetRelTol(Trajex* tx, double RelTol);
TX_API int TXSetAbsTol(Trajex* tx, double AbsTol);
TX_API int TXSetNewtTol(Trajex* tx, double NewtRelTol);
TX_API int TXSetMaxPoincareSteps(Trajex* tx, int n);
TX_API int TXSetMaxPeriodSteps(Trajex* tx, int n);
TX_API int TXSetMaxNewtSteps(Trajex* tx, int n);

/* ---- Errors -------------------------------------------------------------------------------- */

TX_API int TXFatalError(Trajex* tx, int lineno, int msgno, const char* where);
TX_API int TXSetErrorOutput(FILE* where);
TX_API int TXErrorTrajex(Trajex* tx);
TX_API char* TXStrErrorTrajex(Trajex* tx);

#if !defined(TX_NO_MATHERR)
#if !defined(DOMAIN)
struct exception {
    int type;
    char* name;
    double arg1;
    double arg2;
    double retval;
};
#endif
TX_API int matherr(struct exception* x);
#endif

/* ---- Integration --------------------------------------------------------------------------- */

TX_API int TXStep(Trajex* tx, double* t0, double* y);
TX_API int TXIntegrate(Trajex* tx, double* t0, double t1, double* y);
TX_API int TXInterpolate(Trajex* tx, double t, double* y);

/* ---- Poincare sections --------------------------------------------------------------------- */

TX_API int TXSetCut(Trajex* tx, double (*cutfcn)(double t, double* y), double eps);
TX_API int TXSetAutoCut(Trajex* tx, double t, double* y);
TX_API double TXAutoCut(Trajex* tx, double t, double* y);
TX_API int TXCutSurface(Trajex* tx, double* state, double* normal);
TX_API int TXPoincareStep(Trajex* tx, double* t, double* y);
TX_API int CLOSESTCUT(Trajex* tx, double* t, double* y);

/* ---- Tables and Lyapunov exponents --------------------------------------------------------- */

TX_API int TXftablef(Trajex* tx, const char* filename, const char* format, double* t, double t1,
                     long n, double* y);
TX_API int TXftablea(Trajex* tx, FILE* file, const char* format, double* t, double t1, long n,
                     double* y);
TX_API int TXftableg(Trajex* tx, double* t, double t1, long n, double* y,
                     void (*g)(double t, double* y));
TX_API int TXLyapCalc(Trajex* tx, double* t, double* y, double eps, double lyap_dt,
                      long trans_steps, long lyap_steps, double* exponents, int nn);
TX_API int TXLyapCalcFile(Trajex* tx, const char* filename, double* t, double* y, double eps,
                          double lyap_dt, long trans_steps, long lyap_steps, double* exponents,
                          int nn, int samp);
TX_API void GSR(double* v, double* norm, int n, double* x, int nn);

/* ---- Variational equations ----------------------------------------------------------------- */

TX_API int TXVarOpenTrajex(Trajex* tx, jac_t jac, ...);
TX_API int TXVarCloseTrajex(Trajex* tx);
TX_API int TXNumJac(Trajex* tx, double t, double* y, double** j);
TX_API int TXNumParamJac(Trajex* tx, double t, double* y, double** j);
TX_API int TXNumCutJac(Trajex* tx, double t, double* y, double* c1, double* c2, double* j);
TX_API int TXVarStep(Trajex* tx, double* t0, double* y, double** Phi);
TX_API int TXVarIntegrate(Trajex* tx, double* t0, double t1, double* y, double** Phi);
TX_API int TXVarInterpolate(Trajex* tx, double t, double* y, double** Phi);
TX_API int TXVarPoincareStep(Trajex* tx, double* t, double* y, double** Phi);

/* ---- Linear algebra ------------------------------------------------------------------------ */

TX_API int LUdcmp(Trajex* tx, int n, double** a, int* indx, double* d, double* work);
TX_API void LUbksb(int n, double** a, int* indx, double* b);
TX_API int TXLinZero(Trajex* tx, int n, double** A, double* b, double* work);
TX_API void Balanc(double** a, int n);
TX_API void Elmhes(double** a, int n);
TX_API int Hqr(Trajex* tx, double** a, int n, double* wr, double* wi);
TX_API int TXEigen(Trajex* tx, int n, double** A, double* er, double* ei);
TX_API int TXEigenVector(Trajex* tx, int n, double** A, double r, double* ev, double* ws);

/* ---- Equilibria and periodic orbits -------------------------------------------------------- */

TX_API int TXEquiPoint(Trajex* tx, double* y);
TX_API int TXNonAutoOrbit(Trajex* tx, double t, double* y, double** Phi, double T);
TX_API int TXAutoOrbit(Trajex* tx, double t, double* y, double** Phi, int p, double* T);

/* ---- Bifurcations -------------------------------------------------------------------------- */

TX_API TrajexBif* TXCreateBif(Trajex* tx);
TX_API int TXDestroyBif(Trajex* tx, TrajexBif* txb);
TX_API void SORTEIG(double* er, double* ei, int n);
TX_API double CRIT(Trajex* tx, int* crit1, int mode);
TX_API double EQUICRIT(Trajex* tx, int* crit1);
TX_API double EUKLID2(Trajex* tx, int cd);
TX_API double CRIT2(Trajex* tx, int* crit1, int* crit2);
TX_API double EQUICRIT2(Trajex* tx, int* crit1, int* crit2);
TX_API void SHOWMAT(int i, int j, double** m);
TX_API void TXStateOutput(Trajex* tx, FILE* file);
TX_API void TXStateBifOutput(Trajex* tx, FILE* file);
TX_API void TXPathOutput(Trajex* tx, FILE* file);
TX_API int TXCheckBif(Trajex* tx, TrajexBif* txb, double* c, double thedc, int mode, FILE* state);
TX_API int TXCheckEquiBif(Trajex* tx, TrajexBif* txb, double* c, double thedc, FILE* state);
TX_API int TXLocateBif(Trajex* tx, TrajexBif* txb, double* c, int mode, FILE* state);
TX_API int TXLocateEquiBif(Trajex* tx, TrajexBif* txb, double* c, FILE* state);

/* ---- Continuation -------------------------------------------------------------------------- */

TX_API int TXEquiCont(Trajex* tx, double* y, double* c, double* dc, int nrbif, int mode, ...);
TX_API int TXAutoCont(Trajex* tx, double t, double* y, int p, double* T, double* c, double* dc,
                      int nrbif, int mode, ...);
TX_API int TXNonAutoCont(Trajex* tx, double t, double* y, double T, double* c, double* dc,
                         int nrbif, int mode, ...);
TX_API int TXEqui2DCont(Trajex* tx, double* c1, double* c2, double* dc, int mode, ...);
TX_API int TXAuto2DCont(Trajex* tx, double* c1, double* c2, double* dc, int mode, ...);
TX_API int TXNonAuto2DCont(Trajex* tx, double* c1, double* c2, double* dc, int mode, ...);

/* ---- Single-instance interface -------------------------------------------------------------- */

#if !defined(TX_NO_SHORT_NAMES)
TX_API double dot(double* x, double* y, int n);
TX_API int openTrajex(int order, double tol, double h);
TX_API int closeTrajex(void);
TX_API int errorTrajex(void);
TX_API int order(void);
TX_API int step(double* t0, double* y, void (*fcn)(double, double*, double*));
TX_API int integrate(double* t0, double t1, double* y, void (*fcn)(double, double*, double*));
TX_API int interpolate(double t, double* y, void (*fcn)(double, double*, double*));
TX_API int set_tol(double tol);
TX_API int set_max_step(double hmax);
TX_API int set_abs_tol(double abstol);
TX_API int poincare_step(double* t, double* y, void (*fcn)(double, double*, double*),
                         double (*cutfcn)(double, double*), double eps);
TX_API int set_max_poincare_steps(int n);
TX_API int cut_surface(double* state, double* normal);
TX_API double auto_cut(double t, double* y);
TX_API int set_auto_cut(double t, double* y, void (*fcn)(double, double*, double*));
TX_API int lyap_calc(double* t, double* y, double eps, double lyap_dt,
                     void (*fcn)(double, double*, double*), long trans_steps, long lyap_steps,
                     double* exponents, int nn);
TX_API int lyap_calc_file(const char* filename, double* t, double* y, double eps, double lyap_dt,
                          long trans_steps, long lyap_steps, void (*fcn)(double, double*, double*),
                          double* exponents, int nn, int samp);
TX_API int ftablef(const char* filename, const char* format, double* t, double t1, long n,
                   double* y, void (*fcn)(double, double*, double*));
TX_API int ftableg(double* t, double t1, long n, double* y, void (*fcn)(double, double*, double*),
                   void (*g)(double t, double* y));
TX_API int ftablea(FILE* file, const char* format, double* t, double t1, long n, double* y,
                   void (*fcn)(double, double*, double*));
#endif

#ifdef __cplusplus
}
#endif

#endif
