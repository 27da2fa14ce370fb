/// Types that every part of the system shares.
#pragma once

/// The identity that a host uses towards a master server. Printed in the log as its number.
enum cert_type : int {
    CERT_TYPE_NONE = 0,    ///< a record that was made for no server
    CERT_TYPE_HOST = 1,    ///< the physical host
    CERT_TYPE_CLUSTER = 2, ///< the cluster's virtual host
};
