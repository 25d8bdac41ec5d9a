// The backend component; its code arrives with its own change.
