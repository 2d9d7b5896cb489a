#include "modifiers/ZExpression.h"

const Ulmex::ZSimplexNoise ZExpression::noise(0u);

ZExpression::ZExpression() : KSeExpr::Expression(KSeExpr::Expression::UseInterpreter) { init(); }

ZExpression::ZExpression(const std::string& expr)
    : KSeExpr::Expression(expr, KSeExpr::ExprType().FP(3), KSeExpr::Expression::UseInterpreter) {
    init();
}

void ZExpression::init() {
    ready = true;
    variables.clear();
    znoiseFunc = KSeExpr::ExprFunc(&ZExpression::znoiseFuncHelper);
    setWantVec(false);
}

ZExpression::~ZExpression() {
    // The base still holds bound references into `variables` until it is destroyed; it
    // never dereferences them from its destructor, so the members may go first.
}

KSeExpr::ExprVarRef* ZExpression::resolveVar(const std::string& name) const {
    const auto it = variables.find(name);
    if (it == variables.end()) return nullptr;
    return const_cast<Var*>(&it->second);
}

KSeExpr::ExprFunc* ZExpression::resolveFunc(const std::string& name) const {
    if (name == "znoise") return const_cast<KSeExpr::ExprFunc*>(&znoiseFunc);
    return nullptr;
}

void ZExpression::setWantVec(bool wantVec) {
    setDesiredReturnType(KSeExpr::ExprType().FP(wantVec ? 3 : 1));
}

KSeExpr::Vec3d ZExpression::evaluate() const {
    if (getExpr().empty() || !isValid()) return KSeExpr::Vec3d(0.0);
    const double* r = evalFP();
    if (!r) return KSeExpr::Vec3d(0.0);
    if (returnType().dim() >= 3) return KSeExpr::Vec3d(r[0], r[1], r[2]);
    return KSeExpr::Vec3d(r[0]);
}

double ZExpression::znoiseFuncHelper(double freq, double x, double y, double z) {
    const float px = static_cast<float>(freq * x);
    const float py = static_cast<float>(freq * y);
    const float pz = static_cast<float>(freq * z);
    return static_cast<double>(noise.pureValue(px, py, pz, nullptr, nullptr, nullptr));
}
