#include "modifiers/ZExpression.h"

#include <algorithm>
#include <cstring>
#include <vector>

const Ulmex::ZSimplexNoise ZExpression::noise(0u);

ZExpression::ZExpression() : KSeExpr::Expression(KSeExpr::Expression::UseInterpreter) { init(); }

ZExpression::ZExpression(const std::string& expr)
    : KSeExpr::Expression(refusal(expr).empty() ? expr : std::string(), KSeExpr::ExprType().FP(3),
                          KSeExpr::Expression::UseInterpreter) {
    init();
    _refused = refusal(expr);
}

void ZExpression::setExpr(const std::string& expr) {
    _refused = refusal(expr);
    KSeExpr::Expression::setExpr(_refused.empty() ? expr : std::string());
}

std::string ZExpression::refusal(const std::string& text) {
    if (text.size() > kMaxLength)
        return "Too long: " + std::to_string(text.size()) + " characters, more than the " + std::to_string(kMaxLength) +
               " allowed";
    // One pass with a stack of bracket levels (no recursion: the text may be anything). A
    // level's bound is the most operators in one of its statements or arguments, plus its
    // deepest inner level; closing a level adds 3 to the level around it.
    struct Level {
        int ops = 0, most = 0, inner = 0;
    };
    std::vector<Level> levels(1);
    int deepest = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        Level& l = levels.back();
        if (c == '"' || c == '\'') {  // a string: skipped to its closing quote
            for (++i; i < text.size() && text[i] != c; ++i)
                if (text[i] == '\\') ++i;
        } else if (c == '#') {  // a comment, to the end of the line
            while (i < text.size() && text[i] != '\n') ++i;
        } else if (c == '(' || c == '[' || c == '{') {
            levels.emplace_back();
        } else if (c == ')' || c == ']' || c == '}') {
            if (levels.size() > 1) {
                const int bound = std::max(l.most, l.ops) + l.inner + 3;
                levels.pop_back();
                levels.back().inner = std::max(levels.back().inner, bound);
            }
        } else if (c == ';' || c == ',') {
            l.most = std::max(l.most, l.ops);
            l.ops = 0;
        } else if (std::strchr("+-*/%^<>=!&|?:~", c)) {
            ++l.ops;
        }
        const Level& now = levels.back();
        deepest = std::max(deepest, std::max(now.most, now.ops) + now.inner + 3 * static_cast<int>(levels.size() - 1));
    }
    if (deepest > kMaxDepth)
        return "Too deep: its operators and brackets nest to " + std::to_string(deepest) + ", more than the " +
               std::to_string(kMaxDepth) + " allowed";
    return std::string();
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
    if (!_refused.empty() || getExpr().empty() || !isValid()) return KSeExpr::Vec3d(0.0);
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

namespace {

// KSeExpr's error codes in words; %1 and %2 stand for the error's arguments.
const char* errorText(KSeExpr::ErrorCode code) {
    using E = KSeExpr::ErrorCode;
    switch (code) {
    case E::None: return "";
    case E::ExpectedStringOrFloatAnyD: return "Expected a string or a float";
    case E::ExpectedFloatAnyD: return "Expected a float";
    case E::ExpectedFloatD: return "Expected a float[%1]";
    case E::TypeMismatch12: return "Type mismatch: %1 and %2";
    case E::ExpectedFloatOrFloat3: return "Expected a float or a float[3]";
    case E::ArgumentTypeMismatch: return "Expected %1 for an argument, got %2";
    case E::WrongNumberOfArguments: return "Wrong number of arguments: 1 to 7 expected";
    case E::WrongNumberOfArgumentsMultiple3Plus1: return "Wrong number of arguments: a multiple of 3, plus 1, expected";
    case E::WrongNumberOfArguments1Plus: return "Wrong number of arguments: at least 1 expected";
    case E::FirstArgumentNotString: return "The first argument must be a string";
    case E::IncompleteFormatSpecifier: return "Incomplete format specifier";
    case E::UndeclaredVariable: return "No variable named '%1'";
    case E::UndeclaredFunction: return "No function named '%1'";
    case E::BadAssignmentOperator: return "Assignment of a bad type: %1";
    case E::ConditionalTypesNotCompatible: return "The branches of a conditional have incompatible types";
    case E::InconsistentDefinition: return "Variable '%1' is defined inconsistently in conditionals";
    case E::FunctionTooFewArguments: return "Too few arguments for function '%1'";
    case E::FunctionTooManyArguments: return "Too many arguments for function '%1'";
    case E::ExpressionIncompatibleTypes: return "The expression's type %1 does not fit the wanted type %2";
    case E::SyntaxError: return "Syntax error";
    case E::UnexpectedEndOfExpression: return "Unexpected end of the expression";
    case E::UnexpectedEndOfFormatString: return "Unexpected end of a format string";
    case E::InvalidFormatString: return "Invalid format string: only %v or %f";
    case E::WrongNumberOfArgumentsForFormatString: return "Wrong number of arguments for the format string";
    case E::Unknown: return "%1";
    }
    return "Invalid expression";
}

} // namespace

std::string ZExpression::message() const {
    if (!_refused.empty()) return _refused;
    if (getExpr().empty() || isValid()) return std::string();
    const std::vector<Error>& errors = getErrors();
    const KSeExpr::ErrorCode code = errors.empty() ? parseError() : errors.front().error;
    const std::vector<std::string>& ids = errors.empty() ? parseErrorArgs() : errors.front().ids;
    std::string out = errorText(code);
    for (size_t k = 0; k < 2; ++k) {
        const std::string mark = "%" + std::to_string(k + 1);
        const size_t at = out.find(mark);
        if (at != std::string::npos) out.replace(at, mark.size(), k < ids.size() ? ids[k] : std::string("?"));
    }
    if (out.empty()) out = "Invalid expression";
    if (!errors.empty())
        out += " (at character " + std::to_string(errors.front().startPos) + ")";
    return out;
}
