// The evaluator behind every artist-written parameter: a KSeExpr (SeExpr language)
// expression whose variables are floats held in a map, with one added function, znoise.
// Results are scalar.
#pragma once

#include <KSeExpr/ExprFunc.h>
#include <KSeExpr/Expression.h>
#include <KSeExpr/Vec.h>

#include <map>
#include <string>

#include "base/ZSimplexNoise.h"

class ZExpression : public KSeExpr::Expression {
public:
    // A variable of the expression. The value is single precision by design; the language
    // sees it widened to double.
    class Var : public KSeExpr::ExprVarRef {
    public:
        float value = 0.f;

        Var() : KSeExpr::ExprVarRef(KSeExpr::ExprType().FP(1).Varying()) {}
        Var(const Var& o) : KSeExpr::ExprVarRef(o.type()), value(o.value) {}
        ~Var() override = default;

        void eval(double* result) override { result[0] = static_cast<double>(value); }
        void eval(const char** result) override { (void)result; }
    };

    bool ready = false;
    // All variables by name. Entries keep their addresses while the map lives, so a
    // caller may hold `variables[name].value` and write it between evaluations. Every
    // variable must exist before the first evaluate(), which binds names; entries must not
    // be erased while the expression lives.
    std::map<std::string, Var> variables;
    // The function record of znoise: four double arguments, a double result.
    KSeExpr::ExprFunc znoiseFunc;

    // The one noise field of the process (seed 0), shared by every evaluator.
    static const Ulmex::ZSimplexNoise noise;

    // Limits on the text, so that KSeExpr's recursive preparation and teardown stay within a
    // small thread stack (256 KiB) on whatever thread prepares it: at most kMaxLength
    // characters, and at most kMaxDepth for the nesting the text can give (each operator
    // within one statement or argument counts 1, each bracket level 3, the cost of a call).
    // A text beyond either is an invalid expression, never handed to KSeExpr.
    static constexpr size_t kMaxLength = 65536;
    static constexpr int kMaxDepth = 512;

    ZExpression();
    // The expression text. Variables may be written `$u` or `u`.
    explicit ZExpression(const std::string& expr);
    // Replaces the text (KSeExpr's setExpr under the limits above).
    void setExpr(const std::string& expr);
    ~ZExpression() override;

    ZExpression(const ZExpression&) = delete;
    ZExpression& operator=(const ZExpression&) = delete;

    // The map's variable of that exact name, or null.
    KSeExpr::ExprVarRef* resolveVar(const std::string& name) const override;
    // &znoiseFunc for "znoise"; null leaves the lookup to the language's own functions.
    KSeExpr::ExprFunc* resolveFunc(const std::string& name) const override;

    // Scalar (false) or vector (true) evaluation; the constructors make it scalar.
    void setWantVec(bool wantVec);

    // The value, in every component. An empty, unparsable or unbindable expression
    // (unknown variable or function, wrong argument count), or one too long or too deep,
    // evaluates to zero.
    KSeExpr::Vec3d evaluate() const;
    // Why the expression evaluates to zero: empty for an empty or valid expression, else
    // one line such as "No variable named 'q' (at character 5)" or "Too deep: ...".
    std::string message() const;

    // znoise(freq, x, y, z): the shared noise at (float(freq*x), float(freq*y), float(freq*z)).
    static double znoiseFuncHelper(double freq, double x, double y, double z);

private:
    void init();
    // Why a text is refused before KSeExpr sees it, or empty.
    static std::string refusal(const std::string& text);
    std::string _refused;
};
