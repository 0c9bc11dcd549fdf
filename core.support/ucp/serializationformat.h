#pragma once

// Interchange forms of a serialised structure tree. A header of its own: the
// policy names the form without needing the serialisation code.
enum SerializationFormat {
    sfXML = 0,
    sfSISL = 1,
};
