#ifndef QUILLMERE_SYSTEM_STANDARD_DESCRIPTORS_H_
#define QUILLMERE_SYSTEM_STANDARD_DESCRIPTORS_H_

/// Occupies each of the descriptors 0, 1 and 2 that the caller left closed, so that no file opened
/// later gets its number and collects output that is not meant for it. Reading and writing there
/// goes on failing as it does on a closed descriptor, for the tool and for the commands it starts.
void OccupyStandardDescriptors();

#endif  // QUILLMERE_SYSTEM_STANDARD_DESCRIPTORS_H_
