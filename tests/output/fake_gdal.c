/* A library that calls itself GDAL but has almost none of its functions: the binding must
   count what is missing and refuse to write, not crash. */
const char* GDALVersionInfo(const char* request) {
    (void)request;
    return "fake 0.0";
}
