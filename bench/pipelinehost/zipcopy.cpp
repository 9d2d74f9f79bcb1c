// zipcopy.cpp: copies a ZIP archive entry by entry with libzip, each entry as its compressed
// bytes (no inflate, no deflate). The baseline the pipeline benchmark compares the pass-through
// pipeline with: the least work any tool must do to rewrite a package.
#include <zip.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: zipcopy IN OUT\n");
        return 2;
    }
    int error = 0;
    zip_t* in = zip_open(argv[1], ZIP_RDONLY, &error);
    if (in == nullptr) {
        std::fprintf(stderr, "zipcopy: cannot open %s\n", argv[1]);
        return 1;
    }
    zip_t* out = zip_open(argv[2], ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (out == nullptr) {
        std::fprintf(stderr, "zipcopy: cannot create %s\n", argv[2]);
        return 1;
    }
    zip_int64_t count = zip_get_num_entries(in, 0);
    for (zip_int64_t i = 0; i < count; ++i) {
        const char* name = zip_get_name(in, static_cast<zip_uint64_t>(i), 0);
        zip_source_t* source = zip_source_zip(out, in, static_cast<zip_uint64_t>(i), 0, 0, 0);
        if (name == nullptr || source == nullptr || zip_file_add(out, name, source, 0) < 0) {
            std::fprintf(stderr, "zipcopy: cannot copy entry %lld\n", static_cast<long long>(i));
            return 1;
        }
    }
    if (zip_close(out) != 0) {
        std::fprintf(stderr, "zipcopy: cannot write %s\n", argv[2]);
        return 1;
    }
    zip_discard(in);
    return 0;
}
