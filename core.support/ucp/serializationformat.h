#pragma once

// Interchange forms of a serialised structure tree.
enum SerializationFormat {
    sfXML = 0,
    sfSISL = 1,
};
