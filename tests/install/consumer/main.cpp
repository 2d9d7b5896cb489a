// Uses both libraries through the installed headers: follicles, a record round trip in
// memory of a file, and an expression.
#include <base/UlmexBase.h>
#include <modifiers/ZExpression.h>
#include <strands/ZFollicles.h>

#include <cstdio>
#include <iostream>

int main() {
    ZFollicles f;
    f.reset();
    const int n = 100;
    f.uid.setLength(n, true);
    f.rtp.setLength(n, true);
    f.tgl.setLength(n, true);
    f.bcc.setLength(n, true);
    f.uvw.setLength(n, true);
    f.nmp.setLength(n, true);
    f.ln0.setLength(n, true);
    f.rxy.setLength(n, true);
    f.twh.setLength(n, true);
    f.rwh.setLength(n, true);
    f.top.setLength(n, true);
    f.rop.setLength(n, true);
    for (int i = 0; i < n; ++i) f.uid[i] = i;
    f.setTipWidth(0.5f, 1.5f, true);

    ZExpression e("$id * 2 + znoise(1, 0.5, 0.5, 0.5)");
    e.variables["id"].value = 21.f;
    const double v = e.evaluate()[0];

    const char* path = "consumer_record.bin";
    {
        std::ofstream out(path, std::ios::binary);
        f.write(out, true);
    }
    ZFollicles r;
    r.reset();
    {
        std::ifstream in(path, std::ios::binary);
        r.read(in);
    }
    std::remove(path);
    const bool ok = r.twh == f.twh && r.numStrands() == 100 && v > 41.0 && v < 43.0;
    std::cout << "consumer: strands " << r.numStrands() << ", expression " << v << (ok ? ", ok" : ", WRONG")
              << std::endl;
    return ok ? 0 : 1;
}
