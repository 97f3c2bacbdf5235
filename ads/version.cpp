// Build identification of the ad client library.
namespace sorvel {
extern const char* const kLibraryBuild = "sorvel-ads " __DATE__;
}  // namespace sorvel
