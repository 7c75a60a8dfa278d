// Marks what libcfm_mgr_client exports; everything else in the library is hidden.
#ifndef CFM_VISIBILITY_H
#define CFM_VISIBILITY_H

#if defined(__GNUC__)
#define CFM_API __attribute__((visibility("default")))
#else
#define CFM_API
#endif

#endif
