// The login component; its code arrives with its own change.
