#include <iostream>
#include "tarn/fs_operations.h"

int main() {
    const std::string path = "MemFs://greeting";  // or a host file, or FlrFS://..., a file of a restore view
    const auto place = tarn::fs_operations_t::RecognizeFsPath(path, 0);
    const auto out = place->CreateNewFile(path, 6, false);
    out->WriteExc("hello\n", 6);
    out->Close({});
    std::string text(6, ' ');
    place->OpenFile4Read(path)->ReadExc(text.data(), text.size());
    std::cout << text;
}
