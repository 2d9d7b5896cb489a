#include "usd/ZUsdLayer.h"

#include <pxr/gf/math.h>
#include <pxr/gf/matrix4d.h>
#include <pxr/gf/quatd.h>
#include <pxr/gf/quatf.h>
#include <pxr/gf/rotation.h>
#include <pxr/gf/vec2f.h>
#include <pxr/gf/vec3d.h>
#include <pxr/gf/vec3f.h>
#include <pxr/sdf/attributeSpec.h>
#include <pxr/plug/registry.h>
#include <pxr/sdf/primSpec.h>
#include <pxr/sdf/schema.h>
#include <pxr/tf/errorMark.h>
#include <pxr/vt/types.h>

#include <dlfcn.h>
#include <link.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

extern char** environ;

using namespace pxr;

namespace {

// The directory of this library (groomcore/usd/ beside it holds its resources and helper).
std::string libraryDir() {
    Dl_info info{};
    std::string dir;
    if (dladdr(reinterpret_cast<void*>(&libraryDir), &info) && info.dli_fname) {
        dir = info.dli_fname;
        dir = dir.substr(0, dir.find_last_of('/') + 1);
    }
    return dir;
}


// USD's linear blend of two samples: GfLerp, slerp for quaternions, element by element for
// arrays of one length (arrays of two lengths hold the earlier sample).
template <typename T>
T lerp(double u, const T& x, const T& y) {
    return GfLerp(u, x, y);
}
GfQuatf lerp(double u, const GfQuatf& x, const GfQuatf& y) { return GfSlerp(u, x, y); }
GfQuatd lerp(double u, const GfQuatd& x, const GfQuatd& y) { return GfSlerp(u, x, y); }

template <typename T>
bool blendAs(const VtValue& a, const VtValue& b, double u, VtValue& out) {
    if (!a.IsHolding<T>() || !b.IsHolding<T>()) return false;
    out = VtValue(lerp(u, a.UncheckedGet<T>(), b.UncheckedGet<T>()));
    return true;
}

template <typename T>
bool blendArrayAs(const VtValue& a, const VtValue& b, double u, VtValue& out) {
    if (!a.IsHolding<VtArray<T>>() || !b.IsHolding<VtArray<T>>()) return false;
    const VtArray<T>& x = a.UncheckedGet<VtArray<T>>();
    const VtArray<T>& y = b.UncheckedGet<VtArray<T>>();
    if (x.size() != y.size()) {
        out = a;
        return true;
    }
    VtArray<T> blended(x.size());
    for (size_t i = 0; i < x.size(); ++i) blended[i] = lerp(u, x[i], y[i]);
    out = VtValue(std::move(blended));
    return true;
}

// A value of `attr` at `time`, as USD resolves one: a sample, a blend of the two around
// `time`, the nearest end, or the default.
VtValue resolvedValue(const SdfLayerHandle& layer, const SdfPath& attr, double time) {
    double lo = 0.0, hi = 0.0;
    if (layer->GetNumTimeSamplesForPath(attr) > 0 && layer->GetBracketingTimeSamplesForPath(attr, time, &lo, &hi)) {
        VtValue a, b;
        layer->QueryTimeSample(attr, lo, &a);
        if (lo == hi || !layer->QueryTimeSample(attr, hi, &b)) return a;
        const double u = (time - lo) / (hi - lo);
        VtValue out;
        if (blendAs<float>(a, b, u, out) || blendAs<double>(a, b, u, out) || blendAs<GfVec3f>(a, b, u, out) ||
            blendAs<GfVec3d>(a, b, u, out) || blendAs<GfMatrix4d>(a, b, u, out) || blendAs<GfQuatf>(a, b, u, out) ||
            blendAs<GfQuatd>(a, b, u, out) || blendArrayAs<GfVec3f>(a, b, u, out) ||
            blendArrayAs<float>(a, b, u, out) || blendArrayAs<GfVec2f>(a, b, u, out))
            return out;
        return a;  // what USD holds rather than blends (tokens, ints)
    }
    VtValue v;
    layer->HasField(attr, SdfFieldKeys->Default, &v);
    return v;
}

template <typename T>
bool get(const SdfLayerHandle& layer, const SdfPath& prim, const char* name, double time, T& out) {
    const VtValue v = resolvedValue(layer, prim.AppendProperty(TfToken(name)), time);
    if (!v.IsHolding<T>()) return false;
    out = v.UncheckedGet<T>();
    return true;
}

// A double 4 x 4 matrix in USD's row-vector convention from one op's value.
bool opMatrix(const std::string& op, const VtValue& v, GfMatrix4d& m) {
    auto vec3 = [&](GfVec3d& out) {
        if (v.IsHolding<GfVec3d>()) out = v.UncheckedGet<GfVec3d>();
        else if (v.IsHolding<GfVec3f>()) out = GfVec3d(v.UncheckedGet<GfVec3f>());
        else return false;
        return true;
    };
    auto scalar = [&](double& out) {
        if (v.IsHolding<double>()) out = v.UncheckedGet<double>();
        else if (v.IsHolding<float>()) out = v.UncheckedGet<float>();
        else return false;
        return true;
    };
    auto axis = [](int k, double degrees) {
        const GfVec3d a(k == 0, k == 1, k == 2);
        return GfMatrix4d(1.0).SetRotate(GfRotation(a, degrees));
    };
    const std::string kind = op.substr(0, op.find(':'));
    GfVec3d t;
    double s = 0.0;
    if (kind == "translate") return vec3(t) && (m.SetTranslate(t), true);
    if (kind == "scale") return vec3(t) && (m.SetScale(t), true);
    if (kind == "transform") {
        if (!v.IsHolding<GfMatrix4d>()) return false;
        m = v.UncheckedGet<GfMatrix4d>();
        return true;
    }
    if (kind == "orient") {
        if (v.IsHolding<GfQuatf>()) m = GfMatrix4d(1.0).SetRotate(GfQuatd(v.UncheckedGet<GfQuatf>()));
        else if (v.IsHolding<GfQuatd>()) m = GfMatrix4d(1.0).SetRotate(v.UncheckedGet<GfQuatd>());
        else return false;
        return true;
    }
    if (kind == "rotateX" || kind == "rotateY" || kind == "rotateZ") {
        if (!scalar(s)) return false;
        m = axis(kind[6] - 'X', s);
        return true;
    }
    if (kind.size() == 9 && kind.compare(0, 6, "rotate") == 0) {
        if (!vec3(t)) return false;
        // rotateXYZ turns about X first: with row vectors, X's matrix comes first.
        m.SetIdentity();
        for (int i = 0; i < 3; ++i) {
            const int k = kind[6 + i] - 'X';
            if (k < 0 || k > 2) return false;
            m = m * axis(k, t[k]);
        }
        return true;
    }
    return false;
}

// The prim's local matrix from its xformOpOrder (row vectors); `reset` when the order
// starts the stack anew.
bool localMatrix(const SdfLayerHandle& layer, const SdfPath& prim, double time, GfMatrix4d& m, bool& reset,
                 std::string& why) {
    m.SetIdentity();
    reset = false;
    VtTokenArray order;
    if (!get(layer, prim, "xformOpOrder", time, order)) return true;
    // USD applies the ops from the last listed to the first: with row vectors, the last
    // listed is the leftmost factor.
    for (auto it = order.rbegin(); it != order.rend(); ++it) {
        std::string op = it->GetString();
        if (op == "!resetXformStack!") {
            reset = true;
            continue;
        }
        const bool invert = op.compare(0, 8, "!invert!") == 0;
        if (invert) op = op.substr(8);
        const VtValue v = resolvedValue(layer, prim.AppendProperty(TfToken(op)), time);
        GfMatrix4d o(1.0);
        if (op.compare(0, 8, "xformOp:") != 0 || !opMatrix(op.substr(8), v, o)) {
            why = prim.GetString() + ": cannot read its " + op;
            return false;
        }
        m = m * (invert ? o.GetInverse() : o);
    }
    return true;
}

} // namespace

// UsdGeom declares the primvar field "interpolation" in its plug-in information; Sdf alone
// does not know it and refuses to author it. Where the OpenUSD in the process stops at Sdf
// (the project's own does), groomcore declares the field itself, from the resource
// plug-in installed beside this library (groomcore/usd/resources/plugInfo.json), with the
// definition UsdGeom gives it. A process whose OpenUSD has UsdGeom keeps its own.
void ZUsdLayer::declareUsdGeomFields() {
    static std::once_flag once;
    std::call_once(once, [] {
        if (SdfSchema::GetInstance().IsRegistered(TfToken("interpolation"))) return;
        const std::string plugin = libraryDir() + "groomcore/usd/resources/plugInfo.json";
        PlugRegistry::GetInstance().RegisterPlugins(plugin);
        if (!SdfSchema::GetInstance().IsRegistered(TfToken("interpolation")))
            std::fprintf(stderr,
                         "groomcore: OpenUSD knows no \"interpolation\" field and %s does not declare it: "
                         "primvar interpolations cannot be written or read from text files\n",
                         plugin.c_str());
    });
}

namespace {

std::mutex verifierLock;
std::vector<std::string>& verifierStore() {
    static std::vector<std::string> command;
    return command;
}
std::vector<std::string> verifierCommand() {
    const std::lock_guard<std::mutex> held(verifierLock);
    return verifierStore();
}

// The helper's environment: this process's, with the folders of every library loaded here
// ahead on LD_LIBRARY_PATH, so that the helper loads the OpenUSD (and the Python library it
// needs) the host loaded, wherever the host found them. A verifier of the caller's own
// (custom) gets the environment as it is.
std::vector<std::string> helperEnvironment(bool custom) {
    std::vector<std::string> env;
    std::string inherited;
    for (char** e = environ; e && *e; ++e) {
        if (!custom && std::strncmp(*e, "LD_LIBRARY_PATH=", 16) == 0) inherited = *e + 16;
        else env.emplace_back(*e);
    }
    if (custom) return env;
    std::vector<std::string> dirs;
    dl_iterate_phdr(
        [](struct dl_phdr_info* info, size_t, void* out) {
            const std::string name = info->dlpi_name ? info->dlpi_name : "";
            const size_t slash = name.find_last_of('/');
            if (slash != std::string::npos && slash > 0) {
                auto& list = *static_cast<std::vector<std::string>*>(out);
                const std::string dir = name.substr(0, slash);
                if (std::find(list.begin(), list.end(), dir) == list.end()) list.push_back(dir);
            }
            return 0;
        },
        &dirs);
    std::string path;
    for (const std::string& d : dirs) path += (path.empty() ? "" : ":") + d;
    if (!inherited.empty()) path += (path.empty() ? "" : ":") + inherited;
    env.push_back("LD_LIBRARY_PATH=" + path);
    return env;
}

// What identifies one version of a file: a file replaced or rewritten is checked again.
struct FileVersion {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long long modified = 0;
    bool operator==(const FileVersion& o) const {
        return device == o.device && inode == o.inode && size == o.size && modified == o.modified;
    }
};

// Runs groomcore-usd-verify on `file` in a process of its own, at most once per version of
// the file: OpenUSD's parsers (its crate reader above all) can crash on a corrupt file, and
// that must end the helper, not the host. True when the helper read every value; false,
// with why, when it could not, crashed or took too long.
bool parsesElsewhere(const std::string& file, std::string& why) {
    struct stat st {};
    if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        why = file + " cannot be read as a USD layer";
        return false;
    }
    const FileVersion version{st.st_dev, st.st_ino, st.st_size,
                              static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec};
    static std::mutex lock;
    static std::map<std::string, std::pair<FileVersion, std::string>> verdicts;  // file: version, why ("" when good)
    {
        const std::lock_guard<std::mutex> held(lock);
        const auto known = verdicts.find(file);
        if (known != verdicts.end() && known->second.first == version) {
            why = known->second.second;
            return why.empty();
        }
    }
    std::vector<std::string> command = verifierCommand();
    const bool custom = !command.empty();
    if (!custom) command = {libraryDir() + "groomcore/usd/groomcore-usd-verify"};
    command.push_back(file);
    std::string verdict;
    if (::access(command[0].c_str(), X_OK) != 0) {
        verdict = file + " cannot be checked before it is read (" + command[0] + " is missing)";
    } else {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        std::vector<char*> args;
        for (std::string& a : command) args.push_back(a.data());
        args.push_back(nullptr);
        std::vector<std::string> env = helperEnvironment(custom);
        std::vector<char*> envp;
        for (std::string& e : env) envp.push_back(e.data());
        envp.push_back(nullptr);
        pid_t pid = 0;
        const int failed = posix_spawn(&pid, command[0].c_str(), &actions, nullptr, args.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (failed != 0) {
            verdict = file + " cannot be checked before it is read (" + std::strerror(failed) + ")";
        } else {
            // As long as reading the file could take at any sane speed: 30 s, and 1 s per 8 MB.
            const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30 + st.st_size / (8 << 20));
            int status = 0;
            pid_t done = 0;
            auto nap = std::chrono::microseconds(200);
            while ((done = ::waitpid(pid, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < limit) {
                std::this_thread::sleep_for(nap);
                nap = std::min(nap * 2, std::chrono::microseconds(20000));
            }
            if (done == 0) {
                ::kill(pid, SIGKILL);
                ::waitpid(pid, &status, 0);
                verdict = file + " is not a USD layer OpenUSD reads in reasonable time: refused";
            } else if (done < 0 || !WIFEXITED(status)) {
                verdict = file + " is corrupt: OpenUSD's reader does not survive it" +
                          (done > 0 && WIFSIGNALED(status) ? " (signal " + std::to_string(WTERMSIG(status)) + ")" : "");
            } else if (WEXITSTATUS(status) != 0) {
                verdict = file + " cannot be read as a USD layer";
            }
        }
    }
    const std::lock_guard<std::mutex> held(lock);
    verdicts[file] = {version, verdict};
    why = verdict;
    return verdict.empty();
}

} // namespace

void ZUsdLayer::setVerifier(const std::vector<std::string>& command) {
    const std::lock_guard<std::mutex> held(verifierLock);
    verifierStore() = command;
}

int ZUsdLayer::readEveryValue(const std::string& file) {
    declareUsdGeomFields();
    TfErrorMark mark;
    const SdfLayerRefPtr layer = SdfLayer::FindOrOpen(file);
    if (!layer) return 1;
    size_t values = 0;
    layer->Traverse(SdfPath::AbsoluteRootPath(), [&](const SdfPath& path) {
        for (const TfToken& field : layer->ListFields(path)) values += !layer->GetField(path, field).IsEmpty();
        for (double t : layer->ListTimeSamplesForPath(path)) {
            VtValue v;
            values += layer->QueryTimeSample(path, t, &v);
        }
    });
    mark.Clear();
    volatile size_t read = values;  // every value was unpacked
    (void)read;
    return 0;
}

bool ZUsdLayer::open(const std::string& file, std::string& why) {
    declareUsdGeomFields();
    _file = file;
    _layer.Reset();
    if (!parsesElsewhere(file, why)) return false;
    TfErrorMark mark;
    _layer = SdfLayer::FindOrOpen(file);
    mark.Clear();
    _file = file;
    if (!_layer) why = file + " cannot be read as a USD layer";
    return static_cast<bool>(_layer);
}

std::vector<std::string> ZUsdLayer::primsOfType(const std::string& typeName) const {
    std::vector<std::string> out;
    if (!_layer) return out;
    _layer->Traverse(SdfPath::AbsoluteRootPath(), [&](const SdfPath& p) {
        if (!p.IsPrimPath()) return;
        const SdfPrimSpecHandle spec = _layer->GetPrimAtPath(p);
        if (spec && spec->GetTypeName() == typeName) out.push_back(p.GetString());
    });
    std::sort(out.begin(), out.end());
    return out;
}

bool ZUsdLayer::findPrim(const std::string& primPath, const std::string& typeName, SdfPath& prim,
                         std::string& why) const {
    if (!SdfPath::IsValidPathString(primPath)) {
        why = primPath + " is no prim path";
        return false;
    }
    const SdfPath path(primPath);
    const SdfPrimSpecHandle spec =
        _layer && path.IsAbsolutePath() && path.IsPrimPath() ? _layer->GetPrimAtPath(path) : SdfPrimSpecHandle();
    if (!spec) {
        why = _file + " has no prim " + primPath;
        return false;
    }
    if (spec->GetTypeName() != typeName) {
        why = primPath + " in " + _file + " is not " + typeName + " (its type: " + spec->GetTypeName().GetString() + ")";
        return false;
    }
    prim = path;
    return true;
}

VtValue ZUsdLayer::valueAt(const SdfPath& prim, const std::string& name, double time) const {
    if (!_layer) return VtValue();
    return resolvedValue(_layer, prim.AppendProperty(TfToken(name)), time);
}

std::string ZUsdLayer::attributeToken(const SdfPath& prim, const std::string& name, const char* field) const {
    VtValue v;
    if (!_layer || !_layer->HasField(prim.AppendProperty(TfToken(name)), TfToken(field), &v)) return std::string();
    return v.IsHolding<TfToken>() ? v.UncheckedGet<TfToken>().GetString() : std::string();
}

std::vector<std::string> ZUsdLayer::attributeNames(const SdfPath& prim) const {
    std::vector<std::string> out;
    const SdfPrimSpecHandle spec = _layer ? _layer->GetPrimAtPath(prim) : SdfPrimSpecHandle();
    if (!spec) return out;
    for (const SdfAttributeSpecHandle& a : spec->GetAttributes()) out.push_back(a->GetName());
    return out;
}

std::vector<std::string> ZUsdLayer::primsOfType(const std::string& file, const std::string& typeName,
                                                std::string& why) {
    ZUsdLayer layer;
    if (!layer.open(file, why)) return {};
    return layer.primsOfType(typeName);
}

bool ZUsdLayer::sampledTimes(const std::string& file, const std::string& primPath, const std::string& typeName,
                             double& first, double& last, std::string& why) {
    ZUsdLayer layer;
    SdfPath path;
    return layer.open(file, why) && layer.findPrim(primPath, typeName, path, why) &&
           layer.sampledTimes(path, first, last);
}

bool ZUsdLayer::sampledTimes(const SdfPath& prim, double& first, double& last) const {
    bool any = false;
    for (SdfPath p = prim; _layer && !p.IsEmpty() && p != SdfPath::AbsoluteRootPath(); p = p.GetParentPath()) {
        const SdfPrimSpecHandle spec = _layer->GetPrimAtPath(p);
        if (!spec) continue;
        for (const SdfAttributeSpecHandle& a : spec->GetAttributes()) {
            const std::set<double> times = _layer->ListTimeSamplesForPath(a->GetPath());
            if (times.empty()) continue;
            first = any ? std::min(first, *times.begin()) : *times.begin();
            last = any ? std::max(last, *times.rbegin()) : *times.rbegin();
            any = true;
        }
    }
    return any;
}

bool ZUsdLayer::worldMatrix(const SdfPath& prim, double time, Ulmex::ZMatrix& world, std::string& why) const {
    GfMatrix4d m(1.0);
    for (SdfPath p = prim; !p.IsEmpty() && p != SdfPath::AbsoluteRootPath(); p = p.GetParentPath()) {
        GfMatrix4d local;
        bool reset = false;
        if (!localMatrix(_layer, p, time, local, reset, why)) return false;
        m = m * local;
        if (reset) break;
    }
    // Ours is for column vectors: the transpose, in single precision.
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) world(r, c) = static_cast<float>(m[c][r]);
    return true;
}
