"""The web servers that demo, tests and benchmarks share.

    lighttpd      a web server with everything that clients meet on the web
    ogc_server    the same with MapServer, for maps and coverages of the Earth
    tinyproxy     a proxy

`python3 -m mapserver`, started in the root of the project, serves until it is interrupted.
"""
